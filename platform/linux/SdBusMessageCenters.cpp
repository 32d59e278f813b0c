#include "platform/linux/SdBusMessageCenters.h"

#include "platform/linux/SdBusMessageCenter.h"

namespace wrixel2::platform::linux {

std::unique_ptr<MessageCenter> SdBusMessageCenters::centerNamed(std::string_view name) {
  return std::make_unique<SdBusMessageCenter>(connection_, log_, name);
}

}  // namespace wrixel2::platform::linux
