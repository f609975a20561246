#include "manual.h"

#include <sstream>
#include <vector>

namespace morlu::program {
namespace {

std::vector<const CLI::App*> commands_of(const CLI::App& program) {
  return program.get_subcommands([](const CLI::App*) { return true; });
}

/// Backslashes and hyphens keep their form, a dot or quote at a line's start is no request.
std::string escaped(const std::string& text) {
  std::string out;
  bool line_start = true;
  for (const char c : text) {
    if (line_start && (c == '.' || c == '\'')) out += "\\&";
    if (c == '\\') {
      out += "\\e";
    } else {
      if (c == '-') out += '\\';
      out += c;
    }
    line_start = c == '\n';
  }
  return out;
}

void write_option(std::ostream& out, const CLI::Option& option) {
  std::string name = option.get_name(option.get_positional(), true);
  const std::string value = option.get_type_name();
  if (!option.get_positional() && !value.empty()) name += " " + value;
  out << ".TP\n.B " << escaped(name) << '\n' << escaped(option.get_description());
  if (!option.get_default_str().empty())
    out << "; " << escaped(option.get_default_str()) << " if not given";
  out << ".\n";
}

void write_options(std::ostream& out, const CLI::App& app) {
  for (const bool positional : {true, false}) {
    for (const CLI::Option* option : app.get_options()) {
      if (option->get_positional() == positional) write_option(out, *option);
    }
  }
}

// Footers are set as they are on a screen.
void write_footer(std::ostream& out, const CLI::App& app) {
  out << ".PP\n.nf\n" << escaped(app.get_footer()) << "\n.fi\n";
}

std::string synopsis(const CLI::App& command) {
  std::string text = "[OPTIONS]";
  for (const CLI::Option* option : command.get_options()) {
    if (!option->get_positional()) continue;
    text += " " + option->get_name(true) + (option->get_items_expected_max() > 1 ? "..." : "");
  }
  return text;
}

}  // namespace

std::string manual_page(const CLI::App& program, const std::string& version) {
  const std::string name = program.get_name();
  std::ostringstream out;
  out << ".TH " << name << " 1 \"\" \"" << name << ' ' << version << "\"\n"
      << ".SH NAME\n"
      << name << " \\- " << escaped(program.get_description()) << '\n'
      << ".SH SYNOPSIS\n.B " << name << "\nCOMMAND [OPTIONS] FILE...\n"
      << ".SH OPTIONS\n";
  write_options(out, program);
  out << ".SH COMMANDS\n";
  for (const CLI::App* command : commands_of(program)) {
    out << ".SS " << name << ' ' << command->get_name() << ' ' << escaped(synopsis(*command))
        << '\n'
        << escaped(command->get_description()) << ".\n";
    for (const std::string& alias : command->get_aliases())
      out << "Also called " << escaped(alias) << ".\n";
    write_options(out, *command);
    write_footer(out, *command);
  }
  out << ".SH NOTES\n";
  write_footer(out, program);
  return out.str();
}

std::string bash_completion(const CLI::App& program) {
  const auto words_of = [](const CLI::App& app) {
    std::string words;
    for (const CLI::Option* option : app.get_options()) {
      for (const std::string& name : option->get_lnames()) words += " --" + name;
    }
    return words;
  };
  std::string first_words = words_of(program);
  std::ostringstream cases;
  for (const CLI::App* command : commands_of(program)) {
    first_words += " " + command->get_name();
    cases << "      " << command->get_name();
    for (const std::string& alias : command->get_aliases()) cases << '|' << alias;
    cases << ") words='" << words_of(*command) << "' ;;\n";
  }
  const std::string name = program.get_name();
  std::ostringstream out;
  out << "# Completes the command lines of " << name << " in bash.\n"
      << '_' << name << "() {\n"
      << "  local word=${COMP_WORDS[COMP_CWORD]} words='" << first_words << "'\n"
      << "  if [ \"$COMP_CWORD\" -gt 1 ]; then\n"
      << "    case ${COMP_WORDS[1]} in\n"
      << cases.str() << "      *) words= ;;\n    esac\n  fi\n"
      << "  mapfile -t COMPREPLY < <(compgen -W \"$words\" -- \"$word\")\n"
      << "}\ncomplete -o default -F _" << name << ' ' << name << '\n';
  return out.str();
}

}  // namespace morlu::program
