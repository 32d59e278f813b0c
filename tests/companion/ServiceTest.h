#pragma once

#include <string>
#include <utility>
#include <vector>

#include "tests/platform/linux/BusTest.h"

namespace wrixel2::companion {

/// The other program of the bus is a service that the test plays.
class ServiceTest : public platform::linux::BusTest {
 protected:
  void add(const char* path, platform::linux::BusInterface interface) {
    auto slot = other->addInterface(path, std::move(interface));
    ASSERT_TRUE(slot);
    slots.push_back(std::move(*slot));
  }
  void addProperty(const char* path, const char* interface, const char* name, const char* signature,
                   const platform::Value& value) {
    add(path, {interface, {}, {{name, signature, [&value] { return value; }, nullptr}}, {}});
  }
  void appear(const std::string& name) {
    ASSERT_EQ(other->requestName(name), std::nullopt);
    settle();
  }
  void vanish(const std::string& name) {
    other->releaseName(name);
    settle();
  }
  void emit(const std::string& path, const std::string& interface, const char* member,
            const char* signature = "", const platform::Array& arguments = {}) {
    other->emitSignal(path, interface, member, signature, arguments);
    settle();
  }
  void change(platform::Value& value, const char* path, const char* interface, const char* name,
              platform::Value changed) {
    value = std::move(changed);
    emit(path, "org.freedesktop.DBus.Properties", "PropertiesChanged", "sa{sv}as",
         {interface, platform::Dictionary{{name, value}}, platform::Array{}});
  }

  std::vector<platform::linux::BusSlot> slots;
};

}  // namespace wrixel2::companion
