#include "report.h"

namespace osg::io {

std::string place_of(std::string_view section, std::size_t index) {
  return std::string(section) + "[" + std::to_string(index) + "]";
}

std::string message(std::string_view file, std::string_view place, std::string_view reason) {
  std::string text(file);
  text += ": ";
  if (!place.empty()) text.append(place).append(": ");
  return text.append(reason);
}

Warnings::Entry& Warnings::entry(std::string text) {
  const auto [found, fresh] = index_.try_emplace(text, entries_.size());
  if (fresh) entries_.push_back({std::move(text), {}, 0});
  return entries_[found->second];
}

void Warnings::add(std::string text) {
  entry(std::move(text));
}

void Warnings::count(std::string text, std::string_view unit, std::size_t amount) {
  if (amount == 0) return;
  Entry& counted = entry(std::move(text));
  counted.unit = unit;
  counted.amount += amount;
}

std::vector<std::string> Warnings::lines() const {
  std::vector<std::string> lines;
  for (const Entry& entry : entries_) {
    lines.push_back(entry.text);
    if (entry.unit.empty()) continue;
    lines.back() += " (" + std::to_string(entry.amount) + " " + entry.unit;
    lines.back() += entry.amount == 1 ? ")" : "s)";
  }
  return lines;
}

}  // namespace osg::io
