#include "consistency/Stream.h"

#include <sstream>

namespace consistency {

namespace {

constexpr const char* kBadMark = "# consistency: bad: ";
constexpr const char* kRestartMark = "# consistency: restart under test";

bool startsWith(const std::string& s, const std::string& prefix) { return s.compare(0, prefix.size(), prefix) == 0; }

std::string pathOf(const std::string& lineText) {
  json line = json::parse(lineText, nullptr, false);
  if (!line.is_object() || !line.contains("path") || !line["path"].is_string()) return "";
  return line["path"].get<std::string>();
}

}  // namespace

bool plantsAgentOutput(const std::string& lineText) {
  static const char* const agentMounts[] = {"mirroring/status",
                                            "mirroring/hwconfig",
                                            "tapagg/hwconfig",
                                            "tapagg/status",
                                            "stp/portMode/tapagg",
                                            "interface/input/forwardingmodel/mirroring",
                                            "interface/errdisable/cause/tapagg"};
  const std::string path = pathOf(lineText);
  for (const char* mount : agentMounts) {
    const std::string m = mount;
    if (path == m || startsWith(path, m + "/")) return true;
  }
  return false;
}

bool isRestart(const std::string& lineText) {
  json line = json::parse(lineText, nullptr, false);
  return line.is_object() && line.size() == 1 && line.value("op", "") == "restart";
}

std::string changesText(const Stream& s) {
  std::string out;
  for (const Line& l : s.lines) {
    if (l.mark == Line::Mark::bad) out += kBadMark + l.note + "\n";
    if (l.mark == Line::Mark::restartUnderTest) out += std::string(kRestartMark) + "\n";
    out += l.text + "\n";
  }
  return out;
}

std::vector<Line> parseChanges(const std::string& text) {
  std::vector<Line> lines;
  std::istringstream in(text);
  std::string raw;
  Line pending;
  while (std::getline(in, raw)) {
    const auto first = raw.find_first_not_of(" \t\r");
    if (first == std::string::npos) continue;
    if (raw[first] == '#') {
      const std::string comment = raw.substr(first);
      if (startsWith(comment, kBadMark)) {
        pending.mark = Line::Mark::bad;
        pending.note = comment.substr(std::string(kBadMark).size());
      } else if (startsWith(comment, kRestartMark)) {
        pending.mark = Line::Mark::restartUnderTest;
      }
      continue;
    }
    pending.text = raw;
    lines.push_back(pending);
    pending = Line();
  }
  return lines;
}

}  // namespace consistency
