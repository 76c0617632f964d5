// A small agent plug-in that the host's end-to-end tests run through mirroringd.
//
// It has entity types of its own with every field shape the codec knows (attributes of each
// kind, an enumeration, a VRF name, string-, interface- and struct-keyed collections, sets, a
// child-entity collection, a reference and a generic directory), and an agent that behaves
// like a real one in miniature: it mounts a read-only configuration and a writable status,
// creates a local entity, reconciles what an earlier run published by mark and sweep, reacts
// to every configuration change, runs a timer, raises a syslog message and traces. That makes
// start-up, restart, the change stream out, the clock and the logs observable from outside.
#include <set>
#include <string>

#include "platform/Agent.h"
#include "platform/Dir.h"
#include "platform/EventLoop.h"
#include "platform/Reactor.h"
#include "platform/Syslog.h"
#include "platform/Toggles.h"
#include "platform/Trace.h"

namespace TestAgent {

using platform::Attr;
using platform::Coll;
using platform::IntfId;
using platform::Ptr;
using platform::Set;

platform::trace::Facility traceTest("TestAgent");

const platform::syslog::Message valueAlarm(
    "TEST-4-VALUE_ALARM", platform::syslog::Severity::warning, "Value of %s set to %s",
    "The test configuration's value was set to the word that raises this message.",
    "Set the value to anything else.");

enum class Color : uint8_t { red = 0, green = 1, blue = 2 };
constexpr auto enumEntries(Color) {
  return std::array{platform::EnumEntry<Color>{Color::red, "red"}, platform::EnumEntry<Color>{Color::green, "green"},
                    platform::EnumEntry<Color>{Color::blue, "blue"}};
}

// A key with no text form: written as {"key": ..., "value": ...} pairs.
struct TunnelKey {
  platform::IpGenAddr src;
  platform::IpGenAddr dst;
  uint8_t ttl = 64;
  bool operator==(const TunnelKey&) const = default;
  auto operator<=>(const TunnelKey&) const = default;
  template <class D>
  void fields(D& d) {
    d("src", src);
    d("dst", dst);
    d("ttl", ttl);
  }
};

struct Port : platform::EntityOf<Port> {
  static constexpr const char* typeName = "Test::Port";
  explicit Port(const IntfId& key) { name.set(key); }
  Attr<IntfId> name{this};
  Attr<bool> enabled{this};
  Attr<std::string> description{this};
  template <class D>
  void fields(D& d) {
    d.key("name", name);
    d("enabled", enabled);
    d("description", description);
  }
};

// An entry type of the generic directory "test/dir", created by name.
struct Note : platform::EntityOf<Note> {
  static constexpr const char* typeName = "Test::Note";
  Note() = default;
  Attr<std::string> text{this};
  Attr<uint32_t> priority{this};
  template <class D>
  void fields(D& d) {
    d("text", text);
    d("priority", priority);
  }
};
const bool noteRegistered = [] {
  platform::registerType<Note>();
  return true;
}();

struct Settings : platform::EntityOf<Settings> {
  static constexpr const char* typeName = "Test::Settings";
  Attr<uint32_t> maxItems{this};
  Attr<std::string> owner{this};
  template <class D>
  void fields(D& d) {
    d("maxItems", maxItems);
    d("owner", owner);
  }
};

struct Config : platform::EntityOf<Config> {
  static constexpr const char* typeName = "Test::Config";
  Attr<std::string> value{this};
  Attr<Color> color{this};
  Attr<platform::VrfName> vrf{this};
  Attr<uint32_t> interval{this};  // seconds between ticks; 0: no ticks
  Coll<std::string, bool> item{this};
  Coll<IntfId, Ptr<Port>> port{this};
  Set<std::string> tag{this};
  Set<IntfId> shutdown{this};
  Coll<TunnelKey, std::string> tunnel{this};
  Attr<TunnelKey> defaultTunnel{this};
  Attr<platform::Ref<const Port>> favorite{this};
  platform::Child<Settings> settings{this};  // always there
  Attr<Ptr<Settings>> backup{this};          // optional: null when absent
  template <class D>
  void fields(D& d) {
    d("value", value);
    d("color", color);
    d("vrf", vrf);
    d("interval", interval);
    d("item", item);
    d("port", port);
    d("tag", tag);
    d("shutdown", shutdown);
    d("tunnel", tunnel);
    d("defaultTunnel", defaultTunnel);
    d("favorite", favorite);
    d("settings", settings);
    d("backup", backup);
  }
};

struct Status : platform::EntityOf<Status> {
  static constexpr const char* typeName = "Test::Status";
  Attr<std::string> mirror{this};
  Attr<uint32_t> mirrorLength{this};
  Coll<std::string, bool> item{this};
  Coll<TunnelKey, std::string> tunnel{this};
  Attr<uint32_t> tick{this};
  Attr<double> lastTickAt{this};
  template <class D>
  void fields(D& d) {
    d("mirror", mirror);
    d("mirrorLength", mirrorLength);
    d("item", item);
    d("tunnel", tunnel);
    d("tick", tick);
    d("lastTickAt", lastTickAt);
  }
};

// The agent's own record, created locally: how many times an agent started on this database.
struct Local : platform::EntityOf<Local> {
  static constexpr const char* typeName = "Test::Local";
  Attr<uint32_t> starts{this};
  template <class D>
  void fields(D& d) {
    d("starts", starts);
  }
};

// Shaped like an errdisable cause status (interface to the clock time it was disabled), so
// the host's view has something to show.
struct CauseStatus : platform::EntityOf<CauseStatus> {
  static constexpr const char* typeName = "Test::CauseStatus";
  Coll<IntfId, double> intfStatus{this};
  template <class D>
  void fields(D& d) {
    d("intfStatus", intfStatus);
  }
};

struct Root : platform::EntityOf<Root> {
  static constexpr const char* typeName = "Test::Root";
  Attr<std::string> name{this};
  template <class D>
  void fields(D& d) {
    d("name", name);
  }
};

// Publishes the configuration into the status: value into mirror (and, reacting to its own
// write, its length into mirrorLength), item and tunnel entries as they are, shut-down
// interfaces as errdisabled since the time they were shut, and a tick every `interval`
// seconds. The syslog message on "alarm" can be switched off with the toggle AlarmOnAlarm in
// TestAgent.json.
class ConfigSm {
 public:
  ConfigSm(Ptr<const Config> config, Ptr<Status> status, Ptr<CauseStatus> cause, platform::EventLoop& loop)
      : config_(std::move(config)), status_(std::move(status)), cause_(std::move(cause)), loop_(loop),
        timer_(loop, [this] { handleTimer(); }) {
    reactor_.on(config_->value, [this] { handleValue(); });
    reactor_.on(status_->mirror, [this] { handleMirror(); });
    reactor_.on(config_->interval, [this] { handleInterval(); });
    reactor_.on(config_->item, [this](const std::string& k) { handleItem(k); });
    reactor_.on(config_->tunnel, [this](const TunnelKey& k) { handleTunnel(k); });
    reactor_.on(config_->shutdown, [this](const IntfId& k) { handleShutdown(k); });
    handleInitialized();
  }

 private:
  void handleInitialized() {
    traceTest(1, "ConfigSm::handleInitialized");
    mark();
    for (const auto& [k, v] : config_->item) handleItem(k);
    sweep();
    for (const auto& k : status_->tunnel.keys()) handleTunnel(k);
    for (const auto& [k, v] : config_->tunnel) handleTunnel(k);
    for (const auto& k : cause_->intfStatus.keys()) handleShutdown(k);
    for (const auto& k : config_->shutdown) handleShutdown(k);
    handleValue();
    handleMirror();
    handleInterval();
  }

  // Whatever an earlier run published is stale until the configuration confirms it.
  void mark() {
    for (const auto& k : status_->item.keys()) staleItem_.insert(k);
    traceTest(2, "ConfigSm::mark ", staleItem_.size(), " items");
  }
  void sweep() {
    for (const auto& k : staleItem_) {
      traceTest(4, "ConfigSm::sweep itemDel ", k);
      status_->item.del(k);
    }
    staleItem_.clear();
  }

  void handleValue() {
    traceTest(1, "ConfigSm::handleValue ", config_->value());
    status_->mirror.set(config_->value());
    if (config_->value() == "alarm" && platform::toggles::enabled("AlarmOnAlarm", "TestAgent.json", true)) {
      valueAlarm(config_->path() + "/value", config_->value());
    }
  }

  void handleMirror() { status_->mirrorLength.set(uint32_t(status_->mirror().size())); }

  void handleItem(const std::string& k) {
    traceTest(1, "ConfigSm::handleItem ", k);
    staleItem_.erase(k);
    if (const bool* v = config_->item.find(k)) {
      traceTest(4, "ConfigSm::itemIs ", k, " ", *v);
      status_->item.set(k, *v);
    } else {
      traceTest(4, "ConfigSm::itemDel ", k);
      status_->item.del(k);
    }
  }

  void handleTunnel(const TunnelKey& k) {
    if (const std::string* v = config_->tunnel.find(k)) status_->tunnel.set(k, *v);
    else status_->tunnel.del(k);
  }

  void handleShutdown(const IntfId& k) {
    traceTest(1, "ConfigSm::handleShutdown ", k);
    if (!config_->shutdown.contains(k)) cause_->intfStatus.del(k);
    else if (!cause_->intfStatus.contains(k)) cause_->intfStatus.set(k, loop_.now());
  }

  void handleInterval() {
    uint32_t interval = config_->interval();
    traceTest(1, "ConfigSm::handleInterval ", interval);
    timer_.timeMinIs(interval ? loop_.now() + interval : platform::Timer::never);
  }

  void handleTimer() {
    status_->tick.set(status_->tick() + 1);
    status_->lastTickAt.set(loop_.now());
    traceTest(4, "ConfigSm::handleTimer tick ", status_->tick(), " at ", loop_.now());
    handleInterval();
  }

  Ptr<const Config> config_;
  Ptr<Status> status_;
  Ptr<CauseStatus> cause_;
  platform::EventLoop& loop_;
  platform::Timer timer_;
  platform::Reactor reactor_;
  std::set<std::string> staleItem_;
};

// Named "Passive", the agent mounts as usual but builds nothing: a database that only the host
// writes, for replaying a change stream the agent once wrote. Named "Unclosed", it forgets to
// close its mount group, which the host must refuse.
class Agent : public platform::Agent {
 public:
  explicit Agent(const std::string& name)
      : platform::Agent(name), passive_(name == "Passive"), unclosed_(name == "Unclosed") {}
  ~Agent() override { traceTest(0, "TestAgent::~Agent"); }

  void doInit() override {
    traceTest(0, "TestAgent::doInit");
    platform::MountGroup* group = entityManager()->mountGroup();
    group->doMount<Config>("test/config", "r");
    group->doMount<Status>("test/status", "w");
    group->doMount<platform::Dir>("test/dir", "r");
    group->doMount<CauseStatus>("interface/errdisable/cause/tapagg", "wc");
    local_ = entityManager()->localEntityIs<Local>("TestLocal", "test/local");
    entityManager()->localEntitiesCreatedIs(true);
    if (!unclosed_) group->close(false, "", 0);
  }

  void doMountsComplete(platform::MountStatus status, platform::EntityManager* em) override {
    PLATFORM_ASSERT(status == platform::MountStatus::success);
    traceTest(0, "TestAgent::doMountsComplete");
    if (passive_) return;
    local_->starts.set(local_->starts() + 1);
    configSm_ = std::make_unique<ConfigSm>(em->lookup<const Config>("test/config"), em->lookup<Status>("test/status"),
                                           em->lookup<CauseStatus>("interface/errdisable/cause/tapagg"),
                                           em->eventLoop());
  }

 private:
  const bool passive_;
  const bool unclosed_;
  Ptr<Local> local_;
  std::unique_ptr<ConfigSm> configSm_;
};

}  // namespace TestAgent

extern "C" platform::Agent* agentFactory(const char* name) {
  auto* agent = new TestAgent::Agent(name);
  agent->incRef();
  return agent;
}

extern "C" platform::Entity* rootFactory(const char* name) {
  auto* root = new TestAgent::Root();
  root->name.set(name);
  root->incRef();
  return root;
}
