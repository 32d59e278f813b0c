#pragma once

#include "platform/Log.h"
#include "platform/MessageCenter.h"

namespace wrixel2::platform::linux {

class BusConnection;

/// Message centers that share one connection.
class SdBusMessageCenters final : public MessageCenters {
 public:
  SdBusMessageCenters(BusConnection& connection, Log& log) : connection_(connection), log_(log) {}

  std::unique_ptr<MessageCenter> centerNamed(std::string_view name) override;

 private:
  BusConnection& connection_;
  Log& log_;
};

}  // namespace wrixel2::platform::linux
