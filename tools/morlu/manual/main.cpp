// Writes the manual page and the completion of bash into two files. Runs when the program is built.
#include <fstream>

#include "cli.h"
#include "manual.h"

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  CLI::App program;
  morlu::program::describe_program(program);
  std::ofstream page(argv[1], std::ios::binary), completion(argv[2], std::ios::binary);
  page << morlu::program::manual_page(program, MORLU_VERSION);
  completion << morlu::program::bash_completion(program);
  page.close();
  completion.close();
  return page && completion ? 0 : 4;
}
