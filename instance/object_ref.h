// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <gst/gst.h>

#include <utility>

namespace vantrel {

/// Owner of one reference to a GstObject or a subclass of it.
///
/// Dropping the last reference may run code of other people, so an owner is
/// never destroyed, assigned or reset with stream_lock held.
template <typename T>
class ObjectRef {
 public:
  ObjectRef() = default;
  ObjectRef(const ObjectRef& other) : ObjectRef(other.object_) {}
  ObjectRef(ObjectRef&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
  ObjectRef& operator=(ObjectRef other) noexcept {
    std::swap(object_, other.object_);
    return *this;
  }
  ~ObjectRef() {
    if (object_ != nullptr) gst_object_unref(object_);
  }

  /// Takes over a reference that the caller holds; `object` may be NULL.
  static ObjectRef take(T* object) {
    ObjectRef ref;
    ref.object_ = object;
    return ref;
  }
  /// Adds a reference, or sinks a floating one.
  static ObjectRef sink(T* object) {
    return take(object != nullptr ? static_cast<T*>(gst_object_ref_sink(object)) : nullptr);
  }
  /// Adds a reference.
  static ObjectRef share(T* object) { return ObjectRef(object); }

  [[nodiscard]] T* get() const { return object_; }
  explicit operator bool() const { return object_ != nullptr; }

 private:
  explicit ObjectRef(T* object)
      : object_(object != nullptr ? static_cast<T*>(gst_object_ref(object)) : nullptr) {}

  T* object_ = nullptr;
};

using PadRef = ObjectRef<GstPad>;

}  // namespace vantrel
