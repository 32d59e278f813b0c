#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "band/VirtualBand.h"
#include "platform/Bytes.h"
#include "platform/Log.h"
#include "platform/RunLoop.h"

namespace wrixel2::bandradio {

class ManagementSocket;

/// Keeps one connectable advertisement on the air, or off it.
///
/// What is wanted may change while the kernel is still busy with the last change, or with somebody
/// else's: the last wish is the one carried out.
class Advertiser {
 public:
  /// Both are borrowed.
  Advertiser(ManagementSocket& management, platform::RunLoop& runLoop, platform::Log& log);
  Advertiser(const Advertiser&) = delete;
  Advertiser& operator=(const Advertiser&) = delete;
  ~Advertiser();

  /// None takes it off the air.
  void setAdvertisement(const std::optional<band::BandAdvertisement>& advertisement);

  /// To be told of the event of that name: when it was ours and is still wanted, it is put up anew.
  void advertisingRemoved(std::uint8_t instance);
  /// The adapter has been without power.
  void adapterPoweredOn();

 private:
  void readFeatures();
  void reconcile();
  void add();
  void remove();
  void finished(std::uint8_t status, const char* what, std::optional<platform::Bytes> onAir);

  ManagementSocket& management_;
  platform::RunLoop& runLoop_;
  platform::Logger logger_;
  /// The adapter's last place for an advertisement: bluetoothd gives its clients the first ones.
  /// 0 until it is known.
  std::uint8_t instance_ = 0;
  std::optional<platform::Bytes> wanted_;  ///< the command's parameters after the instance
  std::optional<platform::Bytes> onAir_;
  bool isBusy_ = false;
  std::shared_ptr<Advertiser*> self_;  ///< held weakly by what may come too late
};

}  // namespace wrixel2::bandradio
