#include "support/database_text.h"

#include <algorithm>
#include <sstream>
#include <stdexcept>

namespace {

std::vector<std::string> wordsOf(const std::string& text) {
  std::istringstream in(text);
  std::vector<std::string> words;
  for (std::string word; in >> word;) words.push_back(word);
  return words;
}

std::string numbered(const std::string& key, int number) {
  return " " + key + "=" + std::to_string(number);
}

}  // namespace

DatabaseText& DatabaseText::mode(int word) {
  mode_ = word;
  return *this;
}

DatabaseText& DatabaseText::signal(const std::string& name, const std::string& direction,
                                   const std::string& type) {
  std::string line = "signal " + std::to_string(signals_.size() + 1) + " \"" + name +
                     "\" type=" + type + " direction=" + direction;
  if (direction != "output") line += numbered("in", nextColumn_++);
  if (direction != "input") line += numbered("out", nextColumn_++);
  signals_.push_back({name, direction, line + "\n"});
  return *this;
}

DatabaseText& DatabaseText::plate(const std::string& name, const std::string& period,
                                  const std::vector<TrackText>& tracks) {
  std::string slots;
  std::string events;
  for (const TrackText& track : tracks) {
    const std::string ids = idsOf(track.signals);
    slots += "  slot " + directionOf(track) + "\n    of" + ids + "\n";
    events += "    track\n";
    const std::vector<std::string> words = wordsOf(track.events);
    for (std::size_t i = 0; i + 1 < words.size(); i += 2) {
      events += "    event " + words[i] + " " + words[i + 1] + "\n";
    }
    events += "    on" + ids + "\n";
  }
  plates_ += "timeplate " + std::to_string(plateCount_++) + " \"" + name + "\" period=" + period +
             "\n" + slots + "  level 0pS\n" + events;
  return *this;
}

DatabaseText& DatabaseText::rows(std::string_view lines) {
  rows_ += lines;
  return *this;
}

DatabaseText& DatabaseText::subroutine(const std::string& name, std::string_view lines) {
  const std::string slot = std::to_string(subroutineCount_++);
  subroutines_ += "subroutine " + slot + " \"" + name + "\"\n";
  subroutineRows_ += "rows " + slot + "\n" + std::string(lines);
  return *this;
}

DatabaseText& DatabaseText::signalRecords(std::string_view lines) {
  signalRecords_ += lines;
  return *this;
}

DatabaseText& DatabaseText::beforeRows(std::string_view lines) {
  beforeRows_ += lines;
  return *this;
}

DatabaseText& DatabaseText::more(std::string_view lines) {
  more_ += lines;
  return *this;
}

std::string DatabaseText::directionOf(const TrackText& track) const {
  if (!track.direction.empty()) return track.direction;
  const std::string first = wordsOf(track.signals).front();
  const auto found = std::ranges::find(signals_, first, &Signal::name);
  if (found == signals_.end()) throw std::runtime_error("no signal " + first);
  return found->direction;
}

std::string DatabaseText::idsOf(const std::string& names) const {
  std::string ids;
  for (const std::string& name : wordsOf(names)) {
    const auto found = std::ranges::find(signals_, name, &Signal::name);
    if (found == signals_.end()) throw std::runtime_error("no signal " + name);
    ids += " " + std::to_string(found - signals_.begin() + 1);
  }
  return ids;
}

std::string DatabaseText::text() const {
  std::string text = "pvb-dump 1\ndatabase version=" + std::to_string(version_) + " row-width=32\n";
  text += "signals" + numbered("next-column", nextColumn_) +
          numbered("next-id", static_cast<int>(signals_.size()) + 1) +
          "\n  groups 100000 100001 100002 100003 100004\n";
  text += signalRecords_;
  std::string all;
  std::string byDirection[3];
  for (std::size_t i = 0; i < signals_.size(); ++i) {
    const std::string id = " " + std::to_string(i + 1);
    const char first = signals_[i].direction[0];
    text += signals_[i].line;
    all += id;
    byDirection[first == 'i' ? 0 : first == 'o' ? 1 : 2] += id;
  }
  const auto group = [&](const char* head, const std::string& ids) {
    text += std::string("signal ") + head + " type=group\n";
    if (!ids.empty()) text += "  members" + ids + "\n";
  };
  group("100000 \"ALL\"", all);
  group("100001 \"ALLINPUT\"", byDirection[0]);
  group("100002 \"ALLOUTPUT\"", byDirection[1]);
  group("100003 \"ALLBIDIR\"", byDirection[2]);
  group("100004 \"ALLMUX\"", "");
  text += "timeplates" + numbered("mode", mode_) + "\n" + plates_ + beforeRows_ + subroutines_;
  return text + "rows main\n" + rows_ + subroutineRows_ + more_ + "done\n";
}

std::string steps(const std::string& plate, const std::vector<std::string>& states) {
  std::string lines;
  for (const std::string& row : states) lines += "  row \"" + plate + "\" |" + row + "\n";
  return lines;
}

DatabaseText smallChip(int version) {
  DatabaseText chip(version);
  chip.signal("a", "input").signal("y", "output");
  chip.plate("tp", "10nS", {{"a", "0pS D 4nS S", ""}, {"y", "0pS X 9nS Q", ""}});
  return chip;
}
