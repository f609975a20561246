#include <array>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "bench/figure.h"

namespace morlu::bench {
namespace {

std::string number(double value) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), value >= 100 ? "%.0f" : "%.3g", value);
  return text.data();
}

std::string table_cells(const std::string& name, const std::string& unit, const std::string& ours,
                        const std::string& theirs, const std::string& ratio,
                        const std::string& peer) {
  std::array<char, 512> line{};
  std::snprintf(line.data(), line.size(), "%-52s %-12s %10s %10s %7s  %s", name.c_str(),
                unit.c_str(), ours.c_str(), theirs.c_str(), ratio.c_str(), peer.c_str());
  return line.data();
}

}  // namespace

std::string table_heading() {
  return table_cells("area/scene/metric", "unit", "ours", "theirs", "ratio",
                     "peer (ratio above 1: ours is ahead)");
}

std::string table_line(const row& measured) {
  const bool has_peer = !measured.peer.empty();
  std::string line =
      table_cells(measured.of.name(), measured.of.unit, number(measured.ours),
                  has_peer ? number(measured.theirs) : "-", has_peer ? number(measured.ratio) : "-",
                  has_peer ? measured.peer : "-");
  if (!measured.fault.empty()) line += "  WRONG: " + measured.fault;
  return line;
}

std::string json_text(const std::vector<row>& rows) {
  nlohmann::ordered_json list = nlohmann::ordered_json::array();
  for (const row& measured : rows) {
    nlohmann::ordered_json entry = {{"area", measured.of.area},
                                    {"scene", measured.of.scene},
                                    {"metric", measured.of.metric},
                                    {"unit", measured.of.unit},
                                    {"ours", measured.ours}};
    const bool has_peer = !measured.peer.empty();
    entry["peer"] = has_peer ? nlohmann::ordered_json(measured.peer) : nullptr;
    entry["theirs"] = has_peer ? nlohmann::ordered_json(measured.theirs) : nullptr;
    entry["ratio"] = has_peer ? nlohmann::ordered_json(measured.ratio) : nullptr;
    list.push_back(entry);
  }
  return list.dump(2) + "\n";
}

}  // namespace morlu::bench
