// Runs the examples of docs/formats.md, so the document stays true.
//
// The document marks its examples with HTML comments (invisible when rendered), each applying
// to the fenced block that follows it:
//   <!-- file: NAME -->        the block is written to NAME in a fresh directory
//   <!-- run -->               the block is a mirroringd command line, run in that directory
//                              (the --plugin value is replaced by the built test plug-in)
//   <!-- stdout -->, <!-- stderr -->, <!-- output: NAME -->
//                              the block is exactly what the last run wrote there
//   <!-- stdout-contains -->   the block is part of what the last run wrote on standard output
// and, without a block, <!-- exit: N --> for the last run's exit code.
#include "MirroringdRunner.h"

using namespace hosttest;

namespace {

class FormatsDoc : public MirroringdTest {};

// "<!-- name -->" or "<!-- name: argument -->"; false for any other line.
bool directive(const std::string& line, std::string& name, std::string& argument) {
  static constexpr std::string_view open = "<!-- ", close = " -->";
  if (!line.starts_with(open) || !line.ends_with(close)) return false;
  std::string body = line.substr(open.size(), line.size() - open.size() - close.size());
  auto colon = body.find(": ");
  name = body.substr(0, colon);
  argument = colon == std::string::npos ? "" : body.substr(colon + 2);
  return !name.empty() && name.find_first_not_of("abcdefghijklmnopqrstuvwxyz-") == std::string::npos;
}

std::vector<std::string> words(const std::string& line) {
  std::vector<std::string> out;
  std::istringstream in(line);
  for (std::string w; in >> w;) out.push_back(w);
  return out;
}

TEST_F(FormatsDoc, EveryExampleHolds) {
  std::ifstream in(std::string(SOURCE_DIR) + "/docs/formats.md");
  ASSERT_TRUE(in) << "docs/formats.md";
  std::vector<std::string> doc;
  for (std::string line; std::getline(in, line);) doc.push_back(line);

  std::string pending, argument;
  std::size_t pendingLine = 0;
  Result last;
  int runs = 0, checks = 0;
  for (std::size_t i = 0; i < doc.size(); ++i) {
    std::string name, arg;
    if (directive(doc[i], name, arg)) {
      if (name == "exit") {
        EXPECT_EQ(std::to_string(last.exitCode), arg) << "docs/formats.md:" << i + 1 << "\n" << last.err;
        ++checks;
      } else {
        pending = name;
        argument = arg;
        pendingLine = i + 1;
      }
      continue;
    }
    if (!doc[i].starts_with("```")) continue;
    std::string block;
    for (++i; i < doc.size() && !doc[i].starts_with("```"); ++i) block += doc[i] + "\n";
    if (pending.empty()) continue;
    std::string where = "docs/formats.md:" + std::to_string(pendingLine);
    if (pending == "file") {
      fs::create_directories((dir_ / argument).parent_path());
      file(argument, block);
    } else if (pending == "run") {
      std::vector<std::string> args = words(block);
      ASSERT_FALSE(args.empty()) << where;
      ASSERT_EQ(args.front(), "mirroringd") << where;
      args.erase(args.begin());
      for (std::size_t a = 0; a + 1 < args.size(); ++a) {
        if (args[a] == "--plugin") args[a + 1] = TEST_AGENT_PATH;
      }
      last = run(args, "", {}, false);
      ++runs;
    } else if (pending == "stdout") {
      EXPECT_EQ(last.out, block) << where;
    } else if (pending == "stdout-contains") {
      EXPECT_NE(last.out.find(block), std::string::npos) << where << "\n" << last.out;
    } else if (pending == "stderr") {
      EXPECT_EQ(last.err, block) << where;
    } else if (pending == "output") {
      EXPECT_EQ(readFile(dir_ / argument), block) << where;
    } else {
      ADD_FAILURE() << where << ": unknown directive " << pending;
    }
    if (pending != "file" && pending != "run") ++checks;
    pending.clear();
  }
  EXPECT_GE(runs, 8) << "the document lost its examples";
  EXPECT_GE(checks, 10);
}

}  // namespace
