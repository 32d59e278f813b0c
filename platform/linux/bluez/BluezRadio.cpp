#include "platform/linux/bluez/BluezRadio.h"

#include <utility>

#include "platform/linux/LinuxRunLoop.h"
#include "platform/linux/bluez/BluezCentralManager.h"
#include "platform/linux/bluez/SdBusBluezBus.h"

namespace wrixel2::platform::bluez {

BluezRadio::BluezRadio(BusFactory makeBus, RunLoop& loop, const Clock& clock, Log& log,
                       std::optional<std::string> adapter)
    : makeBus_(std::move(makeBus)),
      loop_(loop),
      clock_(clock),
      log_(log),
      adapter_(std::move(adapter)) {}

std::unique_ptr<BluezRadio> BluezRadio::overSystemBus(linux::LinuxRunLoop& loop, const Clock& clock,
                                                      Log& log, std::optional<std::string> adapter,
                                                      const std::string& address) {
  auto makeBus = [&loop, &log, address]() -> std::unique_ptr<BluezBus> {
    return std::make_unique<SdBusBluezBus>(loop, log, address);
  };
  return std::make_unique<BluezRadio>(std::move(makeBus), loop, clock, log, std::move(adapter));
}

std::unique_ptr<CentralManager> BluezRadio::makeCentralManager(
    std::weak_ptr<CentralManagerDelegate> delegate, Queue queue,
    const std::vector<UUID>& storedIdentifiers) {
  auto manager = std::make_unique<BluezCentralManager>(
      makeBus_(), loop_, clock_, log_, std::move(delegate), std::move(queue),
      BluezCentralManager::Options{adapter_, storedIdentifiers});
  std::erase_if(managers_, [](const auto& other) { return other.expired(); });
  managers_.push_back(manager->self());
  return manager;
}

void BluezRadio::endLinks() {
  for (const auto& weak : managers_) {
    if (const auto manager = weak.lock()) {
      (*manager)->endLinks();
    }
  }
}

}  // namespace wrixel2::platform::bluez
