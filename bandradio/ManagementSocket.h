#pragma once

#include <cstdint>
#include <deque>
#include <memory>

#include <systemd/sd-event.h>

#include "platform/Bytes.h"
#include "platform/Result.h"
#include "platform/UniqueFunction.h"
#include "platform/linux/FileDescriptor.h"

namespace wrixel2::platform::linux {
class LinuxRunLoop;
}  // namespace wrixel2::platform::linux

namespace wrixel2::bandradio {

/// Commands, events and statuses of the kernel's Bluetooth management interface, as far as they are
/// used here (doc/mgmt-api.txt of BlueZ).
namespace management {

inline constexpr std::uint16_t kDisconnect = 0x0014;
inline constexpr std::uint16_t kReadAdvertisingFeatures = 0x003D;
inline constexpr std::uint16_t kAddAdvertising = 0x003E;
inline constexpr std::uint16_t kRemoveAdvertising = 0x003F;

inline constexpr std::uint16_t kNewSettings = 0x0006;
inline constexpr std::uint16_t kDeviceConnected = 0x000B;
inline constexpr std::uint16_t kDeviceDisconnected = 0x000C;
inline constexpr std::uint16_t kAdvertisingRemoved = 0x0024;

inline constexpr std::uint8_t kSuccess = 0x00;
inline constexpr std::uint8_t kBusy = 0x0A;
inline constexpr std::uint8_t kInvalidParameters = 0x0D;
inline constexpr std::uint8_t kPermissionDenied = 0x14;

}  // namespace management

/// The kernel's Bluetooth management interface for one adapter. It can what the D-Bus interface
/// cannot: place data in the scan response, and tell at once who made a link and when it ended.
class ManagementSocket {
 public:
  /// The status is of the kernel; the parameters are empty unless it is a success.
  using Reply = platform::UniqueFunction<void(std::uint8_t status, platform::ByteView parameters)>;
  using EventHandler =
      platform::UniqueFunction<void(std::uint16_t event, platform::ByteView parameters)>;

  /// Changing anything needs CAP_NET_ADMIN, which the kernel tells by the status of a command.
  static platform::Result<std::unique_ptr<ManagementSocket>> open(
      platform::linux::LinuxRunLoop& loop, std::uint16_t adapter);

  /// On any socket that keeps messages apart. The loop is borrowed.
  ManagementSocket(platform::linux::LinuxRunLoop& loop, platform::linux::FileDescriptor socket,
                   std::uint16_t adapter);
  ManagementSocket(const ManagementSocket&) = delete;
  ManagementSocket& operator=(const ManagementSocket&) = delete;
  /// Commands that wait are sent, so that a last wish is carried out; nobody hears of the result.
  ~ManagementSocket();

  /// Events of this adapter.
  void onEvent(EventHandler handler) { event_ = std::move(handler); }

  /// Commands are carried out one after the other. The reply may be empty.
  void send(std::uint16_t command, platform::Bytes parameters, Reply reply = nullptr);

  /// Handles what the kernel has said so far, without waiting for the loop to come round to it.
  void handlePending();

 private:
  struct Command {
    std::uint16_t opcode = 0;
    platform::Bytes parameters;
    Reply reply;
  };

  static int onReadable(sd_event_source* source, int descriptor, std::uint32_t events,
                        void* userdata);
  void handle(platform::ByteView message);
  void sendNext();
  bool transmit(const Command& command) const;
  void finishFirst(std::uint8_t status, platform::ByteView parameters);

  platform::linux::FileDescriptor socket_;
  std::uint16_t adapter_;
  sd_event_source* source_ = nullptr;
  EventHandler event_;
  std::deque<Command> commands_;
  bool isBusy_ = false;  ///< the kernel has the first
};

}  // namespace wrixel2::bandradio
