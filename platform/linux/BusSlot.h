#pragma once

#include <memory>

#include <systemd/sd-bus.h>

namespace wrixel2::platform::linux {

/// Something registered with a bus connection: a match, a pending call, an interface. Destroying it
/// ends that; its callback is not called any more. A callback may destroy its own slot.
class BusSlot {
 public:
  BusSlot() = default;
  /// Takes the reference.
  explicit BusSlot(sd_bus_slot* slot) : slot_(slot) {}

  explicit operator bool() const { return slot_ != nullptr; }
  void reset() { slot_.reset(); }

  /// Leaves it in force for the life of the connection (of a pending call: until it is answered).
  void detach() {
    if (slot_) {
      sd_bus_slot_set_floating(slot_.get(), 1);
      slot_.reset();
    }
  }

 private:
  struct Unref {
    void operator()(sd_bus_slot* slot) const { sd_bus_slot_unref(slot); }
  };
  std::unique_ptr<sd_bus_slot, Unref> slot_;
};

}  // namespace wrixel2::platform::linux
