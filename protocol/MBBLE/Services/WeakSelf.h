#pragma once

#include <memory>

namespace wrixel2::mbservices {

/// A weak pointer to the object as what it is, for work that may outlive it. The object is held in
/// a shared pointer, and a base of it offers shared_from_this.
template <typename Object>
std::weak_ptr<Object> weakSelf(Object& object) {
  return std::static_pointer_cast<Object>(object.shared_from_this());
}

}  // namespace wrixel2::mbservices
