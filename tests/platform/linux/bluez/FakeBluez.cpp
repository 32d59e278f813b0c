#include "tests/platform/linux/bluez/FakeBluez.h"

#include <algorithm>
#include <utility>

#include <fmt/format.h>
#include <gtest/gtest.h>

namespace wrixel2::platform::bluez {

class FakeBluez::Bus final : public BluezBus {
 public:
  explicit Bus(FakeBluez& bluez) : bluez_(bluez) {}
  ~Bus() override {
    bluez_.listener_ = nullptr;
    bluez_.waiting_.clear();
    bluez_.era_ = std::make_shared<char>();
  }

  void start(BluezBusListener& listener) override {
    bluez_.listener_ = &listener;
    if (bluez_.hasBus) {
      bluez_.findBus();
    } else {
      bluez_.loseBus();
    }
  }
  void call(BluezCall call, TimeInterval timeout, Callback callback) override {
    // The kernel and the peer have this long before bluetoothd itself gives up.
    EXPECT_GE(timeout, std::chrono::seconds(60)) << call.member;
    bluez_.received(std::move(call), std::move(callback));
  }
  void send(BluezCall call) override { bluez_.record(call); }

 private:
  FakeBluez& bluez_;
};

std::unique_ptr<BluezBus> FakeBluez::makeBus() { return std::make_unique<Bus>(*this); }

void FakeBluez::tell(UniqueFunction<void(BluezBusListener&)> call) {
  loop_.post([this, call = std::move(call)] {
    if (listener_ != nullptr) {
      call(*listener_);
    }
  });
}

void FakeBluez::loseBus() {
  era_ = std::make_shared<char>();
  waiting_.clear();
  tell([](BluezBusListener& listener) { listener.busUnavailable({111, "No bus"}); });
}

void FakeBluez::findBus() {
  tell([is = isRunning](BluezBusListener& listener) { listener.bluezOwnerChanged(is); });
}

void FakeBluez::stop() {
  era_ = std::make_shared<char>();
  waiting_.clear();
  tell([](BluezBusListener& listener) { listener.bluezOwnerChanged(false); });
}

void FakeBluez::restart() {
  tell([](BluezBusListener& listener) { listener.bluezOwnerChanged(true); });
}

void FakeBluez::place(const std::string& path, std::string_view interface, Dictionary properties) {
  objects_[path].insert_or_assign(std::string(interface), std::move(properties));
}

void FakeBluez::announce(const std::string& path) {
  tell([path, interfaces = objects_.at(path)](BluezBusListener& listener) {
    listener.interfacesAdded(path, interfaces);
  });
}

void FakeBluez::add(const std::string& path, std::string_view interface, Dictionary properties) {
  place(path, interface, std::move(properties));
  announce(path);
}

void FakeBluez::remove(const std::string& path) {
  Array interfaces;
  for (const auto& [name, properties] : objects_.at(path)) {
    interfaces.emplace_back(name);
  }
  objects_.erase(path);
  tell([path, interfaces](BluezBusListener& listener) {
    listener.interfacesRemoved(path, interfaces);
  });
}

void FakeBluez::change(const std::string& path, std::string_view interface,
                       const Dictionary& changed, const Array& invalidated) {
  const auto object = objects_.find(path);
  if (object != objects_.end() && find(object->second, interface) != nullptr) {
    Dictionary properties = *find(object->second, interface)->dictionary();
    for (const auto& [name, value] : changed) {
      properties.insert_or_assign(name, value);
    }
    place(path, interface, properties);
  }
  tell(
      [path, interface = std::string(interface), changed, invalidated](BluezBusListener& listener) {
        listener.propertiesChanged(path, interface, changed, invalidated);
      });
}

void FakeBluez::disconnected(const std::string& path, const std::string& reason) {
  tell([path, reason](BluezBusListener& listener) { listener.deviceDisconnected(path, reason); });
}

void FakeBluez::record(const BluezCall& call) {
  std::string text = fmt::format("{} {}", call.path.substr(call.path.rfind('/') + 1), call.member);
  if (call.value) {
    text += " " + hexText(*call.value);
  }
  for (const auto& option : call.options.value_or(std::vector<BluezOption>())) {
    std::string shown = option.value.text() == nullptr ? std::to_string(option.value.longValue())
                                                       : *option.value.text();
    if (const auto* texts = option.value.array()) {
      shown.clear();
      for (const auto& one : *texts) {
        shown += (shown.empty() ? "" : ",") + one.text()->substr(4, 4);
      }
    }
    text += option.name == "type" ? " " + shown : fmt::format(" {}={}", option.name, shown);
  }
  calls_.push_back(text);
}

void FakeBluez::received(BluezCall call, BluezBus::Callback callback) {
  if (call.member != "GetManagedObjects") {
    record(call);
  }
  Waiting waiting{std::move(call), std::move(callback)};
  if (byHand.contains(waiting.call.member)) {
    waiting_.push_back(std::move(waiting));
  } else {
    auto reply = replyOf(waiting.call);
    answer(std::move(waiting), std::move(reply));
  }
}

void FakeBluez::answer(Waiting waiting, BluezReply reply) {
  loop_.post([era = std::weak_ptr<char>(era_), callback = std::move(waiting.callback),
              reply = std::move(reply)] {
    if (!era.expired()) {
      callback(reply);
    }
  });
}

BluezReply FakeBluez::replyOf(const BluezCall& call) {
  if (call.member == "GetManagedObjects") {
    Dictionary all;
    for (const auto& [path, interfaces] : objects_) {
      all.emplace(path, interfaces);
    }
    return {{all}, {}, {}};
  }
  if (!objects_.contains(call.path)) {
    return {{}, "org.freedesktop.DBus.Error.UnknownObject", "No such object"};
  }
  if (call.member == "Connect") {
    change(call.path, kDeviceInterface, {{"Connected", true}});
    change(call.path, kDeviceInterface, {{"ServicesResolved", true}});
  } else if (call.member == "Disconnect") {
    change(call.path, kDeviceInterface, {{"ServicesResolved", false}, {"Connected", false}});
  } else if (call.member == "ReadValue") {
    const Bytes value{0xAA};
    change(call.path, call.interface, {{"Value", value}});
    return {{value}, {}, {}};
  }
  return {};
}

std::vector<std::string> FakeBluez::takeCalls() { return std::exchange(calls_, {}); }

std::vector<std::string> FakeBluez::pending() const {
  std::vector<std::string> members;
  for (const auto& waiting : waiting_) {
    members.emplace_back(waiting.call.member);
  }
  return members;
}

FakeBluez::Waiting FakeBluez::takeWaiting(std::string_view member) {
  const auto found = std::ranges::find_if(
      waiting_, [member](const Waiting& waiting) { return waiting.call.member == member; });
  if (found == waiting_.end()) {
    ADD_FAILURE() << "No call of " << member << " waits for an answer";
    return {};
  }
  Waiting waiting = std::move(*found);
  waiting_.erase(found);
  return waiting;
}

void FakeBluez::reply(std::string_view member, Array values) {
  if (auto waiting = takeWaiting(member); waiting.callback) {
    answer(std::move(waiting), {std::move(values), {}, {}});
  }
}

void FakeBluez::fail(std::string_view member, std::string_view name, std::string_view text) {
  if (auto waiting = takeWaiting(member); waiting.callback) {
    answer(std::move(waiting), {{}, std::string(name), std::string(text)});
  }
}

}  // namespace wrixel2::platform::bluez
