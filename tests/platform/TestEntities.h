// Small entity types that exercise every field shape of the framework in the tests.
#pragma once

#include <string>

#include "platform/Dir.h"
#include "platform/Entity.h"

namespace testing_entities {

enum class Color : uint8_t { red = 0, green = 1, blue = 2 };
constexpr auto enumEntries(Color) {
  return std::array{platform::EnumEntry<Color>{Color::red, "red"}, platform::EnumEntry<Color>{Color::green, "green"},
                    platform::EnumEntry<Color>{Color::blue, "blue"}};
}

struct Point {
  int32_t x = 0;
  int32_t y = 7;
  std::string label;
  bool operator==(const Point&) const = default;
  bool operator<(const Point& o) const { return std::tie(x, y, label) < std::tie(o.x, o.y, o.label); }
  template <class D>
  void fields(D& d) {
    d("x", x);
    d("y", y);
    d("label", label);
  }
};

struct Leaf : platform::EntityOf<Leaf> {
  static constexpr const char* typeName = "Test::Leaf";
  Leaf() = default;
  explicit Leaf(const platform::IntfId& k) { name.set(k); }
  platform::Attr<platform::IntfId> name{this};
  platform::Attr<Color> color{this};
  platform::Attr<uint8_t> weight{this};
  template <class D>
  void fields(D& d) {
    d.key("name", name);
    d("color", color);
    d("weight", weight);
  }
};

struct Inner : platform::EntityOf<Inner> {
  static constexpr const char* typeName = "Test::Inner";
  Inner() = default;
  platform::Attr<std::string> text{this};
  platform::Attr<platform::VrfName> vrf{this};
  template <class D>
  void fields(D& d) {
    d("text", text);
    d("vrf", vrf);
  }
};

struct Root : platform::EntityOf<Root> {
  static constexpr const char* typeName = "Test::Root";
  Root() = default;
  platform::Attr<bool> flag{this};
  platform::Attr<uint32_t> count{this};
  platform::Attr<Point> point{this};
  platform::Coll<platform::IntfId, platform::Ptr<Leaf>> leaf{this};
  platform::Coll<std::string, uint16_t> number{this};
  platform::Coll<Point, std::string> byPoint{this};
  platform::Set<std::string> tag{this};
  platform::Child<Inner> inner{this};
  platform::Attr<platform::Ptr<Inner>> optional{this};
  platform::Coll<std::string, platform::Ref<const Leaf>> reference{this};
  // Interface names kept as strings: string order, interface-name input rules.
  platform::Set<std::string, platform::IntfNameTraits> member{this};
  platform::Attr<std::string, platform::IntfNameTraits> uplink{this};
  template <class D>
  void fields(D& d) {
    d("flag", flag);
    d("count", count);
    d("point", point);
    d("leaf", leaf);
    d("number", number);
    d("byPoint", byPoint);
    d("tag", tag);
    d("inner", inner);
    d("optional", optional);
    d("reference", reference);
    d("member", member);
    d("uplink", uplink);
  }
};

}  // namespace testing_entities
