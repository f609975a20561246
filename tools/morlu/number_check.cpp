#include "number_check.h"

#include <string>

namespace morlu::program {

CLI::Validator number_check(const char* wanted, bool (*is_good)(float number)) {
  const auto problem = [=](const std::string& text) {
    float number = 0;
    const bool is_one = CLI::detail::lexical_cast(text, number) && is_good(number);
    return is_one ? std::string() : '\'' + text + "' is no number " + wanted;
  };
  return {problem, ""};
}

CLI::Validator share_check() {
  return number_check("above 0 and at most 1", [](float share) { return share > 0 && share <= 1; });
}

}  // namespace morlu::program
