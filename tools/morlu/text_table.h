#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace morlu::program {

/// Labels on the left, a column of right-aligned cells for each subject.
struct TextTable {
  struct Column {
    std::string title;
    std::vector<std::string> cells;  // one a label
  };
  std::vector<std::string> labels;
  std::vector<Column> columns;

  /// Columns side by side as long as a line holds them, further ones below. Titles that are too
  /// long lose their beginning.
  void print(std::ostream& out) const;
};

}  // namespace morlu::program
