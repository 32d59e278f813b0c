#pragma once

#include <string>
#include <utility>

#include "platform/Descriptor.h"

namespace wrixel2::platform::bluez {

class BluezDescriptor final : public Descriptor {
 public:
  BluezDescriptor(std::string path, const UUID& uuid) : path_(std::move(path)), uuid_(uuid) {}

  const UUID& uuid() const override { return uuid_; }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
  UUID uuid_;
};

}  // namespace wrixel2::platform::bluez
