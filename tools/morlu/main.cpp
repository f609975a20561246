// The program: parses the command line, runs a subcommand, turns failures into exit codes.
#include <exception>
#include <iostream>
#include <new>

#include "cli.h"

using namespace morlu::program;

int main(int argc, char** argv) {
  CLI::App program;
  try {
    describe_program(program);
    program.parse(argc, argv);
    if (std::cout.flush()) return done;
    say("standard output: cannot be written");
    return unwritable_output;
  } catch (const CLI::ParseError& error) {
    return program.exit(error) == 0 ? done : wrong_usage;
  } catch (const Failure& failure) {
    say(failure.what());
    return failure.code();
  } catch (const std::bad_alloc&) {
    say("there is not enough memory");
  } catch (const std::exception& error) {
    say(error.what());
  }
  return work_failed;
}
