#include "bandradio/ManagementSocket.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include <sys/epoll.h>
#include <sys/socket.h>

#include "platform/linux/LinuxRunLoop.h"

namespace wrixel2::bandradio {

using platform::Bytes;
using platform::ByteView;

namespace {

// From the kernel's net/bluetooth/bluetooth.h and hci_sock.h, which no package installs but
// BlueZ's.
constexpr int kBluetoothHCI = 1;
constexpr std::uint16_t kNoDevice = 0xFFFF;
constexpr std::uint16_t kControlChannel = 3;
struct BluetoothHCIAddress {
  sa_family_t family;
  std::uint16_t device;
  std::uint16_t channel;
};

// Every message: event or command, adapter and length of the rest, each 16 bits little-endian.
constexpr std::size_t kHeaderLength = 6;
constexpr std::size_t kLongestMessage = 4096;
constexpr std::uint16_t kCommandComplete = 0x0001;
constexpr std::uint16_t kCommandStatus = 0x0002;
constexpr std::uint8_t kFailed = 0x03;

std::uint16_t number16(ByteView bytes, std::size_t at) {
  return static_cast<std::uint16_t>(bytes[at] | bytes[at + 1] << 8U);
}

void append16(Bytes& bytes, std::size_t value) {
  bytes.push_back(static_cast<std::uint8_t>(value & 0xFFU));
  bytes.push_back(static_cast<std::uint8_t>(value >> 8U));
}

}  // namespace

platform::Result<std::unique_ptr<ManagementSocket>> ManagementSocket::open(
    platform::linux::LinuxRunLoop& loop, std::uint16_t adapter) {
  platform::linux::FileDescriptor socket(
      ::socket(AF_BLUETOOTH, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, kBluetoothHCI));
  if (!socket) {
    return platform::errorFromErrno(errno, "Bluetooth is not to be had on this machine");
  }
  const BluetoothHCIAddress address{AF_BLUETOOTH, kNoDevice, kControlChannel};
  sockaddr_storage storage{};
  std::memcpy(&storage, &address, sizeof address);
  if (::bind(socket.get(), reinterpret_cast<const sockaddr*>(&storage), sizeof address) != 0) {
    return platform::errorFromErrno(errno, "The Bluetooth management interface cannot be used");
  }
  return std::make_unique<ManagementSocket>(loop, std::move(socket), adapter);
}

ManagementSocket::ManagementSocket(platform::linux::LinuxRunLoop& loop,
                                   platform::linux::FileDescriptor socket, std::uint16_t adapter)
    : socket_(std::move(socket)), adapter_(adapter) {
  if (sd_event_add_io(loop.event(), &source_, socket_.get(), EPOLLIN, onReadable, this) >= 0) {
    // Ahead of the buses: the kernel tells of a link before bluetoothd can speak about it.
    sd_event_source_set_priority(source_, SD_EVENT_PRIORITY_IMPORTANT);
  }
}

ManagementSocket::~ManagementSocket() {
  sd_event_source_disable_unref(source_);
  for (std::size_t at = isBusy_ ? 1 : 0; at < commands_.size(); ++at) {
    transmit(commands_[at]);
  }
}

void ManagementSocket::send(std::uint16_t command, Bytes parameters, Reply reply) {
  commands_.push_back({command, std::move(parameters), std::move(reply)});
  sendNext();
}

bool ManagementSocket::transmit(const Command& command) const {
  Bytes message;
  append16(message, command.opcode);
  append16(message, adapter_);
  append16(message, command.parameters.size());
  message.insert(message.end(), command.parameters.begin(), command.parameters.end());
  return ::send(socket_.get(), message.data(), message.size(), MSG_NOSIGNAL) ==
         static_cast<ssize_t>(message.size());
}

void ManagementSocket::sendNext() {
  while (!isBusy_ && !commands_.empty()) {
    isBusy_ = transmit(commands_.front());
    if (!isBusy_) {
      finishFirst(kFailed, {});
    }
  }
}

void ManagementSocket::finishFirst(std::uint8_t status, ByteView parameters) {
  const Command command = std::move(commands_.front());
  commands_.pop_front();
  isBusy_ = false;
  if (command.reply) {
    command.reply(status, status == management::kSuccess ? parameters : ByteView{});
  }
}

int ManagementSocket::onReadable(sd_event_source*, int, std::uint32_t events, void* userdata) {
  auto* const self = static_cast<ManagementSocket*>(userdata);
  self->handlePending();
  if ((events & EPOLLHUP) != 0) {
    sd_event_source_set_enabled(self->source_, SD_EVENT_OFF);
  }
  return 0;
}

void ManagementSocket::handlePending() {
  std::array<std::uint8_t, kLongestMessage> buffer{};
  for (;;) {
    const ssize_t count = ::recv(socket_.get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
    if (count <= 0) {
      return;
    }
    handle(ByteView(buffer.data(), static_cast<std::size_t>(count)));
  }
}

void ManagementSocket::handle(ByteView message) {
  if (message.size() < kHeaderLength || number16(message, 2) != adapter_) {
    return;
  }
  const std::uint16_t event = number16(message, 0);
  const ByteView parameters = message.subspan(kHeaderLength);
  if (event != kCommandComplete && event != kCommandStatus) {
    if (event_) {
      event_(event, parameters);
    }
    return;
  }
  constexpr std::size_t kReplyHeaderLength = 3;
  if (parameters.size() < kReplyHeaderLength || !isBusy_ ||
      number16(parameters, 0) != commands_.front().opcode) {
    return;
  }
  finishFirst(parameters[2], parameters.subspan(kReplyHeaderLength));
  sendNext();
}

}  // namespace wrixel2::bandradio
