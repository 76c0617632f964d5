#include "consistency/Isolated.h"

#include "consistency/Differential.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <regex>
#include <sstream>
#include <vector>

namespace consistency {

namespace {

void writeAll(int fd, const std::string& s) {
  std::size_t done = 0;
  while (done < s.size()) {
    ssize_t n = ::write(fd, s.data() + done, s.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return;
    done += std::size_t(n);
  }
}

std::string readAll(int fd) {
  std::string out;
  char buf[4096];
  for (;;) {
    ssize_t n = ::read(fd, buf, sizeof buf);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    out.append(buf, std::size_t(n));
  }
  return out;
}

// "/a/b/File.cpp:12" -> "File.cpp:12", anywhere in a line.
std::string withoutDirectories(const std::string& s) {
  static const std::regex directories(R"((/[^ /():]+)+/)");
  return std::regex_replace(s, directories, "");
}

// The function of a stack frame line "#3 0x55... in Foo::bar(int) file.cpp:1".
std::string frameFunction(const std::string& line) {
  auto in = line.find(" in ");
  if (in == std::string::npos) return "";
  std::string f = line.substr(in + 4);
  auto paren = f.find('(');
  return paren == std::string::npos ? f.substr(0, f.find(' ')) : f.substr(0, paren);
}

}  // namespace

Failure crashFailure(int status, const std::string& err, const std::string& lastProgress) {
  std::vector<std::string> lines;
  std::istringstream in(err);
  for (std::string l; std::getline(in, l);) lines.push_back(l);
  const std::string during = lastProgress.empty() ? "" : " (during " + lastProgress + ")";
  auto excerpt = [&](std::size_t from, std::size_t n) {
    std::string out;
    for (std::size_t i = from; i < lines.size() && i < from + n; ++i) out += (out.empty() ? "" : " | ") + lines[i];
    return out;
  };
  auto firstOwnFrame = [&](std::size_t from) {
    for (std::size_t i = from; i < lines.size(); ++i) {
      std::string f = frameFunction(lines[i]);
      if (f.find("::") != std::string::npos && f.find("operator new") == std::string::npos && f.find("__") != 0) {
        return f;
      }
    }
    return std::string();
  };
  for (std::size_t i = 0; i < lines.size(); ++i) {
    const std::string& l = lines[i];
    if (auto at = l.find("assertion failed: "); at != std::string::npos) {
      const std::string what = withoutDirectories(l.substr(at + 18));
      return Failure{"agentAbort", "assertion failed: " + what + during, lastProgress, "agentAbort: " + what};
    }
    if (auto at = l.find("ERROR: AddressSanitizer: "); at != std::string::npos) {
      std::string kind = l.substr(at + 25);
      kind = kind.substr(0, kind.find(" on "));
      return Failure{"sanitizer", withoutDirectories(excerpt(i, 8)) + during, lastProgress,
                     "sanitizer: AddressSanitizer " + kind + " in " + firstOwnFrame(i)};
    }
    if (l.find("ERROR: LeakSanitizer") != std::string::npos) {
      return Failure{"sanitizer", withoutDirectories(excerpt(i, 10)) + during, lastProgress,
                     "sanitizer: LeakSanitizer in " + firstOwnFrame(i)};
    }
    if (auto at = l.find("runtime error: "); at != std::string::npos) {
      const std::string what = withoutDirectories(l);
      return Failure{"sanitizer", what + during, lastProgress, "sanitizer: " + what};
    }
  }
  if (WIFSIGNALED(status)) {
    const int sig = WTERMSIG(status);
    if (sig == SIGALRM) return Failure{"timeout", "the run did not finish" + during, lastProgress, "timeout"};
    const std::string name = strsignal(sig);
    return Failure{"agentCrash", "signal " + name + during + (lines.empty() ? "" : ": " + excerpt(0, 4)), lastProgress,
                   "agentCrash: " + name};
  }
  const std::string code = WIFEXITED(status) ? std::to_string(WEXITSTATUS(status)) : "?";
  return Failure{"agentExit", "the run exited with code " + code + during + (lines.empty() ? "" : ": " + excerpt(0, 4)),
                 lastProgress, "agentExit " + code};
}

ChildRun runIsolated(const std::function<json(const Progress&)>& work, const IsolationOptions& io) {
  ChildRun run;
  int pipeFds[2];
  if (::pipe(pipeFds) != 0) {
    run.result = work(nullptr);
    return run;
  }
  char errPath[] = "/tmp/consistencyCheck-stderr-XXXXXX";
  const int errFd = ::mkstemp(errPath);
  if (errFd >= 0) ::unlink(errPath);
  std::fflush(nullptr);
  const pid_t pid = ::fork();
  if (pid == 0) {
    ::close(pipeFds[0]);
    if (errFd >= 0) ::dup2(errFd, 2);
    ::signal(SIGALRM, SIG_DFL);
    ::alarm(io.timeoutSeconds);
    const int out = pipeFds[1];
    const json result = work([out](const std::string& p) { writeAll(out, "P " + p + "\n"); });
    writeAll(out, "R " + result.dump() + "\n");
    ::close(out);
    // A normal exit, so that a leak check at exit still reports.
    std::exit(0);
  }
  ::close(pipeFds[1]);
  const std::string text = readAll(pipeFds[0]);
  ::close(pipeFds[0]);
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  std::string lastProgress;
  std::istringstream lines(text);
  for (std::string l; std::getline(lines, l);) {
    if (l.rfind("P ", 0) == 0) lastProgress = l.substr(2);
    if (l.rfind("R ", 0) == 0) run.result = json::parse(l.substr(2), nullptr, false);
  }
  if (run.result && run.result->is_discarded()) run.result.reset();
  if (!(WIFEXITED(status) && WEXITSTATUS(status) == 0 && run.result)) {
    std::string err;
    if (errFd >= 0) {
      ::lseek(errFd, 0, SEEK_SET);
      err = readAll(errFd);
    }
    run.crash = crashFailure(status, err, lastProgress);
  }
  if (errFd >= 0) ::close(errFd);
  return run;
}

namespace {

CheckResult checkInvariantsIsolated(const Stream& s, const CheckOptions& o, const IsolationOptions& io) {
  CheckResult r;
  r.counters.streams = 1;
  ChildRun run = runIsolated(
      [&](const Progress& progress) {
        CheckResult cr = checkStream(s, o, progress);
        return json{{"failure", cr.failure ? failureToJson(*cr.failure) : json(nullptr)},
                    {"counters", countersToJson(cr.counters)}};
      },
      io);
  if (run.result && run.result->is_object()) {
    r.counters = countersFromJson((*run.result)["counters"]);
    if ((*run.result)["failure"].is_object()) r.failure = failureFromJson((*run.result)["failure"]);
  }
  if (run.crash && !r.failure) {
    r.failure = run.crash;
    if (!o.only.empty() && r.failure->signature != o.only) r.failure->signature += " (not the one looked for)";
    // A known fault that ends the run ends this stream's checks; nothing more can be seen.
    for (const auto& known : o.skip) {
      if (r.failure && r.failure->signature.rfind(known, 0) == 0) r.failure.reset();
    }
  }
  return r;
}

}  // namespace

CheckResult checkIsolated(const Stream& s, const CheckOptions& o, const IsolationOptions& io) {
  CheckResult r;
  r.counters.streams = 1;
  // Minimising a difference from the reference needs only the two runs compared.
  const bool differenceOnly = o.only.rfind(sameAsReference, 0) == 0;
  if (!differenceOnly) r = checkInvariantsIsolated(s, o, io);
  if (r.failure || o.reference.empty()) return r;
  if (auto f = compareWithReference(s, o, io, r.counters); f && wanted(*f, o)) r.failure = std::move(f);
  return r;
}

}  // namespace consistency
