#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/Service.h"
#include "platform/linux/bluez/BluezCharacteristic.h"

namespace wrixel2::platform::bluez {

/// A service for the life of one link.
class BluezService final : public Service {
 public:
  BluezService(std::string path, const UUID& uuid) : path_(std::move(path)), uuid_(uuid) {}

  const UUID& uuid() const override { return uuid_; }
  std::vector<std::shared_ptr<Characteristic>> characteristics() const override {
    return {characteristics_.begin(), characteristics_.end()};
  }

  const std::string& path() const { return path_; }
  const std::vector<std::shared_ptr<BluezCharacteristic>>& found() const {
    return characteristics_;
  }
  void add(std::shared_ptr<BluezCharacteristic> characteristic) {
    characteristics_.push_back(std::move(characteristic));
  }

 private:
  std::string path_;
  UUID uuid_;
  std::vector<std::shared_ptr<BluezCharacteristic>> characteristics_;
};

}  // namespace wrixel2::platform::bluez
