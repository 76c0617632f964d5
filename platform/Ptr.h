// Counted references.
//
// Entities, state machines and reactors are shared by counted references: `Ptr<T>` is an
// intrusive pointer to a `RefCounted` object. The count is not atomic: everything that
// holds a `Ptr` lives on the one event-loop thread. `make<T>(...)` allocates and returns the
// first reference.
//
// Preconditions a caller could get wrong:
// - Never wrap `this` in a `Ptr` inside a constructor: the temporary would drop the count
//   back to zero and delete the half-built object.
// - `RefCounted` objects are always heap-allocated through `make` (or `new` handed straight
//   to a `Ptr`); they delete themselves when the last reference goes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <type_traits>
#include <utility>

namespace platform {

class RefCounted {
 public:
  RefCounted() = default;
  // Copying an object does not copy its references.
  RefCounted(const RefCounted&) noexcept {}
  RefCounted& operator=(const RefCounted&) noexcept { return *this; }

  void incRef() const noexcept { ++refs_; }
  void decRef() const noexcept {
    if (--refs_ == 0) delete this;
  }
  uint32_t refCount() const noexcept { return refs_; }

 protected:
  virtual ~RefCounted() = default;

 private:
  mutable uint32_t refs_ = 0;
};

template <class T>
class Ptr {
 public:
  using element_type = T;

  Ptr() noexcept = default;
  Ptr(std::nullptr_t) noexcept {}  // NOLINT: null converts implicitly, as for raw pointers
  Ptr(T* p) noexcept : p_(p) {     // NOLINT: the count lives in the object, so this is safe
    if (p_) p_->incRef();
  }
  Ptr(const Ptr& o) noexcept : Ptr(o.p_) {}
  Ptr(Ptr&& o) noexcept : p_(std::exchange(o.p_, nullptr)) {}
  template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
  Ptr(const Ptr<U>& o) noexcept : Ptr(o.get()) {}  // NOLINT
  template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
  Ptr(Ptr<U>&& o) noexcept : p_(o.release()) {}  // NOLINT
  ~Ptr() {
    if (p_) p_->decRef();
  }

  Ptr& operator=(Ptr o) noexcept {
    std::swap(p_, o.p_);
    return *this;
  }

  T* get() const noexcept { return p_; }
  T* operator->() const noexcept { return p_; }
  T& operator*() const noexcept { return *p_; }
  explicit operator bool() const noexcept { return p_ != nullptr; }

  // Gives up the reference without dropping the count (for conversions).
  T* release() noexcept { return std::exchange(p_, nullptr); }

  template <class U>
  bool operator==(const Ptr<U>& o) const noexcept {
    return p_ == o.get();
  }
  bool operator==(std::nullptr_t) const noexcept { return p_ == nullptr; }
  template <class U>
  bool operator<(const Ptr<U>& o) const noexcept {
    return std::less<const void*>()(p_, o.get());
  }

 private:
  T* p_ = nullptr;
};

template <class T, class... Args>
Ptr<T> make(Args&&... args) {
  return Ptr<T>(new T(std::forward<Args>(args)...));
}

template <class T, class U>
Ptr<T> dynamicPtrCast(const Ptr<U>& p) {
  return Ptr<T>(dynamic_cast<T*>(p.get()));
}

template <class T, class U>
Ptr<T> constPtrCast(const Ptr<U>& p) {
  return Ptr<T>(const_cast<T*>(p.get()));
}

}  // namespace platform

template <class T>
struct std::hash<platform::Ptr<T>> {
  std::size_t operator()(const platform::Ptr<T>& p) const noexcept { return std::hash<T*>()(p.get()); }
};
