// Runs the real mirroringd from tests: a temporary directory per test, files written into it,
// and the executable started with the test agent plug-in, its standard streams captured.
// MIRRORINGD_PATH and TEST_AGENT_PATH are set by the build.
#pragma once

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace hosttest {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

struct Result {
  int exitCode = -1;
  std::string out;
  std::string err;
};

inline std::string readFile(const fs::path& p) {
  std::ifstream in(p);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

inline std::vector<std::string> lines(const std::string& text) {
  std::vector<std::string> out;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) out.push_back(line);
  return out;
}

// Every JSON document in `text`, one after the other (dumps are pretty-printed).
inline std::vector<Json> documents(const std::string& text) {
  std::vector<Json> out;
  std::istringstream in(text);
  while (in >> std::ws, in.peek() != std::char_traits<char>::eof()) {
    Json j;
    in >> j;
    out.push_back(std::move(j));
  }
  return out;
}

class MirroringdTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/mirroringdTestXXXXXX";
    ASSERT_TRUE(mkdtemp(pattern));
    dir_ = pattern;
  }
  void TearDown() override { fs::remove_all(dir_); }

  std::string file(const std::string& name, const std::string& content) {
    fs::path p = dir_ / name;
    std::ofstream(p) << content;
    return p.string();
  }
  std::string path(const std::string& name) const { return (dir_ / name).string(); }

  // Runs mirroringd in the test's directory with the test plug-in (unless `withPlugin` is
  // false), `stdinText` on its standard input, and TRACE and MIRRORINGD_PLUGIN cleared unless
  // given in `env`.
  Result run(std::vector<std::string> args, const std::string& stdinText = "",
             const std::map<std::string, std::string>& env = {}, bool withPlugin = true) {
    if (withPlugin) args.insert(args.begin(), {"--plugin", TEST_AGENT_PATH});
    return runProgram(MIRRORINGD_PATH, args, stdinText, env);
  }

  // Runs any program the same way.
  Result runProgram(const std::string& program, std::vector<std::string> args, const std::string& stdinText = "",
                    const std::map<std::string, std::string>& env = {}) {
    std::string in = file("stdin.txt", stdinText);
    std::string out = path("stdout.txt"), err = path("stderr.txt");
    pid_t pid = fork();
    if (pid == 0) {
      if (chdir(dir_.c_str()) != 0) _exit(126);
      unsetenv("TRACE");
      unsetenv("MIRRORINGD_PLUGIN");
      for (const auto& [k, v] : env) setenv(k.c_str(), v.c_str(), 1);
      int fds[3] = {open(in.c_str(), O_RDONLY), open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644),
                    open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644)};
      for (int i = 0; i < 3; ++i) dup2(fds[i], i);
      std::vector<char*> argv{const_cast<char*>(program.c_str())};
      for (auto& a : args) argv.push_back(a.data());
      argv.push_back(nullptr);
      execv(program.c_str(), argv.data());
      _exit(127);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    Result r;
    r.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    r.out = readFile(out);
    r.err = readFile(err);
    return r;
  }

  // Runs a state file and a change stream; answers the final dump of every mount.
  Json dumpAfter(const std::string& state, const std::string& changes, std::vector<std::string> extra = {},
                 Result* result = nullptr) {
    std::vector<std::string> args = {"--quiet-syslog", "--dump", path("dump.json"), "--changes",
                                      file("changes.jsonl", changes)};
    args.insert(args.end(), extra.begin(), extra.end());
    args.push_back(file("state.json", state));
    Result r = run(args);
    if (result) *result = r;
    EXPECT_EQ(r.exitCode, 0) << r.err;
    auto docs = documents(readFile(path("dump.json")));
    return docs.empty() ? Json() : docs.back();
  }

  fs::path dir_;
};

}  // namespace hosttest
