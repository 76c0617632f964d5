#include "host/ChangeStream.h"

#include <cmath>
#include <initializer_list>
#include <istream>
#include <ostream>

#include "host/View.h"
#include "platform/Codec.h"

namespace host {

using platform::Value;

namespace {

std::string_view trim(std::string_view s) {
  auto first = s.find_first_not_of(" \t\r\n");
  if (first == std::string_view::npos) return {};
  auto last = s.find_last_not_of(" \t\r\n");
  return s.substr(first, last - first + 1);
}

// Commands take only the members they know, so that a misspelt member is not silently ignored.
bool onlyMembers(const Value& line, const std::string& op, std::initializer_list<std::string_view> allowed,
                 std::string& error) {
  for (const auto& [name, v] : line.asObject()) {
    bool known = name == "op";
    for (auto a : allowed) known = known || name == a;
    if (!known) {
      error = "unknown member \"" + name + "\" in a " + op + " command";
      return false;
    }
  }
  return true;
}

bool continuesCharacter(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

}  // namespace

std::string shortened(std::string message, std::size_t limit) {
  if (message.size() <= limit) return message;
  std::size_t head = limit / 2, tail = message.size() - limit / 2;
  while (head > 0 && continuesCharacter(message[head])) --head;
  while (tail < message.size() && continuesCharacter(message[tail])) ++tail;
  return message.substr(0, head) + " [... " + std::to_string(tail - head) + " bytes ...] " + message.substr(tail);
}

ChangeStream::ChangeStream(AgentHost& host, Outputs outputs, std::vector<std::string> dumpMounts)
    : host_(host), out_(outputs), dumpMounts_(std::move(dumpMounts)) {}

void ChangeStream::dump(const std::vector<std::string>& mounts) {
  std::ostream* out = out_.dump ? out_.dump : out_.view;
  if (!out) return;
  *out << platform::toJson(platform::dumpState(host_.database(), mounts.empty() ? dumpMounts_ : mounts), 2) << '\n';
  out->flush();
}

void ChangeStream::view() {
  if (!out_.view) return;
  *out_.view << renderView(host_.database());
  out_.view->flush();
}

ChangeStream::Outcome ChangeStream::runCommand(const std::string& op, const Value& line, std::string& error) {
  if (op == "restart") {
    if (!onlyMembers(line, op, {}, error)) return Outcome::rejected;
    if (!host_.restart(error)) return Outcome::failed;
  } else if (op == "advance") {
    if (!onlyMembers(line, op, {"seconds"}, error)) return Outcome::rejected;
    const Value* seconds = line.find("seconds");
    if (!seconds || !seconds->isNumber() || !std::isfinite(seconds->asReal()) || seconds->asReal() < 0) {
      error = "advance needs \"seconds\", a number not below 0";
      return Outcome::rejected;
    }
    host_.loop().advance(seconds->asReal());
  } else if (op == "dump") {
    if (!onlyMembers(line, op, {"mounts"}, error)) return Outcome::rejected;
    std::vector<std::string> mounts;
    if (const Value* list = line.find("mounts")) {
      if (!list->isArray()) {
        error = "\"mounts\" of a dump command is an array of mount paths";
        return Outcome::rejected;
      }
      for (const auto& m : list->asArray()) {
        if (!m.isString()) {
          error = "\"mounts\" of a dump command is an array of mount paths";
          return Outcome::rejected;
        }
        if (!host_.database().find(m.asString())) {
          error = "unknown mount \"" + m.asString() + "\"";
          return Outcome::rejected;
        }
        mounts.push_back(m.asString());
      }
    }
    dump(mounts);
  } else {  // view
    if (!onlyMembers(line, op, {}, error)) return Outcome::rejected;
    view();
  }
  return Outcome::command;
}

ChangeStream::Outcome ChangeStream::runLine(std::string_view raw, std::string& error) {
  ++counts_.lines;
  std::string_view text = trim(raw);
  if (text.empty() || text.front() == '#') return Outcome::skipped;

  Outcome outcome = Outcome::rejected;
  std::optional<Value> line = platform::parseJson(text, error);
  if (!line) {
    // nothing more to say than the parser's message
  } else if (!line->isObject()) {
    error = std::string("a line is a JSON object, got ") + line->kindName();
  } else {
    const Value* op = line->find("op");
    std::string name = op && op->isString() ? op->asString() : "";
    if (name == "restart" || name == "advance" || name == "dump" || name == "view") {
      outcome = runCommand(name, *line, error);
    } else if (op && op->isString() && name != "set" && name != "merge" && name != "del") {
      error = "unknown op \"" + name + "\"; expected set, merge, del, restart, advance, dump or view";
    } else {
      platform::Change change;
      if (platform::parseChange(std::move(*line), change, error) &&
          platform::applyChange(host_.database(), change, error)) {
        outcome = Outcome::applied;
      }
    }
  }

  switch (outcome) {
    case Outcome::applied: ++counts_.changes; break;
    case Outcome::command: ++counts_.commands; break;
    case Outcome::rejected: ++counts_.rejected; break;
    default: break;
  }
  if (outcome != Outcome::failed) host_.loop().runPending();
  if (out_.changesOut) out_.changesOut->flush();
  return outcome;
}

ChangeStream::Outcome ChangeStream::runStream(std::istream& in, const std::string& name, bool strict) {
  std::string line;
  uint64_t number = 0;
  while (std::getline(in, line)) {
    ++number;
    std::string error;
    Outcome outcome = runLine(line, error);
    if (outcome == Outcome::rejected || outcome == Outcome::failed) {
      if (out_.errors) *out_.errors << name << ':' << number << ": " << shortened(error) << std::endl;
      if (outcome == Outcome::failed || strict) return outcome;
    }
  }
  return Outcome::applied;
}

}  // namespace host
