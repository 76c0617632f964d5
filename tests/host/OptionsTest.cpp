// The command line of mirroringd: both option forms, defaults, the environment, and refusals.
#include <gtest/gtest.h>

#include <cstdlib>
#include <vector>

#include "host/Options.h"

namespace {

struct Parsed {
  bool ok;
  host::Options options;
  std::string error;
};

Parsed parse(std::vector<const char*> args) {
  args.insert(args.begin(), "mirroringd");
  Parsed p;
  p.ok = host::parseOptions(int(args.size()), args.data(), p.options, p.error);
  return p;
}

TEST(Options, ValuesInBothFormsRepeatedMountsAndDefaults) {
  unsetenv("MIRRORINGD_PLUGIN");
  Parsed p = parse({"--plugin=/x/lib.so", "--changes", "-", "--dump-mount", "a/b", "--dump-mount=c/d",
                    "--clock-start", "12.5", "--strict", "state.json"});
  ASSERT_TRUE(p.ok) << p.error;
  EXPECT_EQ(p.options.plugin, "/x/lib.so");
  EXPECT_EQ(p.options.changes, "-");
  EXPECT_EQ(p.options.dumpMounts, (std::vector<std::string>{"a/b", "c/d"}));
  EXPECT_EQ(p.options.clockStart, 12.5);
  EXPECT_TRUE(p.options.strict);
  EXPECT_EQ(p.options.stateFile, "state.json");
  EXPECT_EQ(p.options.agent, "Mirroring");
  EXPECT_FALSE(p.options.trace) << "unset, so that TRACE applies";

  Parsed d = parse({});
  ASSERT_TRUE(d.ok);
  EXPECT_TRUE(d.options.plugin.ends_with("/lib/libMirroring.so")) << d.options.plugin;
  setenv("MIRRORINGD_PLUGIN", "/env/lib.so", 1);
  EXPECT_EQ(parse({}).options.plugin, "/env/lib.so");
  EXPECT_EQ(parse({"--plugin", "/opt/lib.so"}).options.plugin, "/opt/lib.so") << "the option wins";
  unsetenv("MIRRORINGD_PLUGIN");

  // A value that looks like an option is still the value of the option before it.
  Parsed t = parse({"--trace", "", "--agent", "--odd"});
  ASSERT_TRUE(t.ok) << t.error;
  EXPECT_EQ(t.options.trace, "");
  EXPECT_EQ(t.options.agent, "--odd");

  EXPECT_TRUE(parse({"--version"}).options.version);
  EXPECT_TRUE(parse({"-h"}).options.help);
}

TEST(Options, RefusesWhatItCannotUse) {
  struct Case {
    std::vector<const char*> args;
    std::string error;
  };
  const std::vector<Case> cases = {
      {{"--nope"}, "unknown option --nope"},
      {{"--dump"}, "option --dump needs a value"},
      {{"--strict=yes"}, "option --strict takes no value"},
      {{"a.json", "b.json"}, "only one state file may be given"},
      {{"--clock-start", "-1"}, "--clock-start needs a number of seconds not below 0"},
      {{"--clock-start", "1s"}, "--clock-start needs a number of seconds not below 0"},
      {{"--agent="}, "--agent needs a name"},
      {{"--changes", "-", "-"}, "cannot both be standard input"},
  };
  for (const auto& c : cases) {
    Parsed p = parse(c.args);
    EXPECT_FALSE(p.ok) << c.error;
    EXPECT_NE(p.error.find(c.error), std::string::npos) << p.error;
  }
}

}  // namespace
