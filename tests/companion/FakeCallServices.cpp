#include "tests/companion/FakeCallServices.h"

#include <utility>

#include "companion/GnomeCallsSource.h"
#include "companion/ModemManagerCallSource.h"
#include "companion/OfonoCallSource.h"

namespace wrixel2::companion {

namespace {

using platform::Array;
using platform::Dictionary;
using platform::Value;
using platform::linux::BusConnection;
using platform::linux::BusInterface;
using platform::linux::BusMessage;
using platform::linux::BusMethod;
using platform::linux::BusSlot;

BusSlot objectManager(const BusConnection& bus, const char* path) {
  sd_bus_slot* slot = nullptr;
  sd_bus_add_object_manager(bus.get(), &slot, path);
  return BusSlot(slot);
}

class FakeGnomeCalls final : public FakeCallService {
 public:
  explicit FakeGnomeCalls(BusConnection& bus)
      : FakeCallService(bus), manager_(objectManager(bus, "/org/gnome/Calls")) {}

  std::string name() const override { return "org.gnome.Calls"; }
  bool hasModem() const override { return false; }
  void removeModem() override {}

 private:
  static constexpr const char* kCall = "org.gnome.Calls.Call";

  static Value number(CallState state) {
    switch (state) {
      case CallState::incoming:
        return 5;
      case CallState::waiting:
        return 6;
      case CallState::outgoing:
        return 3;
      case CallState::active:
        return 1;
      case CallState::over:
        return 7;
    }
    return 0;
  }

  std::string pathOf(int call) const override {
    return "/org/gnome/Calls/Call/" + std::to_string(call);
  }
  BusSlot exportCall(const std::string& path, const Call& call) override {
    return std::move(*bus_.addInterface(
        path,
        {kCall,
         {action(path, "Accept"), action(path, "Hangup"), action(path, "Silence")},
         {{"State", "u", [&call] { return number(call.state); }, nullptr},
          {"Inbound", "b", [&call] { return Value(call.state != CallState::outgoing); }, nullptr},
          {"Id", "s", [&call] { return Value(call.number); }, nullptr},
          {"DisplayName", "s", [&call] { return Value(call.caller); }, nullptr}},
         {}}));
  }
  void announce(const std::string& path, const Call& /*call*/) override {
    sd_bus_emit_interfaces_added(bus_.get(), path.c_str(), kCall, nullptr);
  }
  void announceState(const std::string& path, const Call& call) override {
    changed(path, kCall, {{"State", number(call.state)}});
  }
  void announceNumber(const std::string& path, const Call& call) override {
    changed(path, kCall, {{"Id", call.number}});
  }
  void announceRemoval(const std::string& path) override {
    sd_bus_emit_interfaces_removed(bus_.get(), path.c_str(), kCall, nullptr);
  }

  BusSlot manager_;
};

class FakeModemManager final : public FakeCallService {
 public:
  explicit FakeModemManager(BusConnection& bus)
      : FakeCallService(bus), manager_(objectManager(bus, "/org/freedesktop/ModemManager1")) {
    modem_ = std::move(*bus_.addInterface(
        kModem, {kVoice, {}, {{"Calls", "ao", [this] { return paths(); }, nullptr}}, {}}));
  }

  std::string name() const override { return "org.freedesktop.ModemManager1"; }
  void removeModem() override {
    sd_bus_emit_interfaces_removed(bus_.get(), kModem, kVoice, nullptr);
    modem_.reset();
  }

 private:
  static constexpr const char* kModem = "/org/freedesktop/ModemManager1/Modem/0";
  static constexpr const char* kVoice = "org.freedesktop.ModemManager1.Modem.Voice";
  static constexpr const char* kCall = "org.freedesktop.ModemManager1.Call";

  static Value number(CallState state) {
    switch (state) {
      case CallState::incoming:
        return 3;
      case CallState::waiting:
        return 6;
      case CallState::outgoing:
        return 2;
      case CallState::active:
        return 4;
      case CallState::over:
        return 7;
    }
    return 0;
  }
  Value paths() const {
    Array all;
    for (const auto& [path, call] : calls_) {
      all.emplace_back(path);
    }
    return all;
  }

  std::string pathOf(int call) const override {
    return "/org/freedesktop/ModemManager1/Call/" + std::to_string(call);
  }
  BusSlot exportCall(const std::string& path, const Call& call) override {
    return std::move(*bus_.addInterface(
        path, {kCall,
               {action(path, "Hangup")},
               {{"State", "i", [&call] { return number(call.state); }, nullptr},
                {"Direction", "i",
                 [&call] { return Value(call.state == CallState::outgoing ? 2 : 1); }, nullptr},
                {"Number", "s", [&call] { return Value(call.number); }, nullptr}},
               {}}));
  }
  void announce(const std::string& path, const Call& /*call*/) override {
    bus_.emitSignal(kModem, kVoice, "CallAdded", "o", {path});
  }
  void announceState(const std::string& path, const Call& call) override {
    bus_.emitSignal(path, kCall, "StateChanged", "iiu", {0, number(call.state), 0});
  }
  void announceNumber(const std::string& path, const Call& call) override {
    changed(path, kCall, {{"Number", call.number}});
  }
  void announceRemoval(const std::string& path) override {
    bus_.emitSignal(kModem, kVoice, "CallDeleted", "o", {path});
  }

  BusSlot manager_;
  BusSlot modem_;
};

class FakeOfono final : public FakeCallService {
 public:
  explicit FakeOfono(BusConnection& bus) : FakeCallService(bus) {
    slots_.push_back(std::move(*bus_.addInterface(
        "/", {"org.ofono.Manager",
              {{"GetModems",
                {},
                {{"modems", "a(oa{sv})"}},
                [](const BusMessage& call) {
                  const Value modems =
                      Array{Array{kModem, Dictionary{{"Interfaces", Array{kManager}}}},
                            Array{"/modem1", Dictionary{{"Interfaces", Array{}}}}};
                  call.reply("a(oa{sv})", {modems});
                }}},
              {},
              {}})));
    slots_.push_back(std::move(*bus_.addInterface(
        kModem, {kManager,
                 {{"GetCalls",
                   {},
                   {{"calls", "a(oa{sv})"}},
                   [this](const BusMessage& call) { call.reply("a(oa{sv})", {all()}); }}},
                 {},
                 {}})));
  }

  std::string name() const override { return "org.ofono"; }
  void removeModem() override {
    bus_.emitSignal(kModem, "org.ofono.Modem", "PropertyChanged", "sv",
                    {"Interfaces", Array{"org.ofono.SimManager"}});
  }

 private:
  static constexpr const char* kModem = "/modem0";
  static constexpr const char* kManager = "org.ofono.VoiceCallManager";
  static constexpr const char* kCall = "org.ofono.VoiceCall";

  static const char* word(CallState state) {
    switch (state) {
      case CallState::incoming:
        return "incoming";
      case CallState::waiting:
        return "waiting";
      case CallState::outgoing:
        return "dialing";
      case CallState::active:
        return "active";
      case CallState::over:
        return "disconnected";
    }
    return "";
  }
  static std::string line(const Call& call) {
    return call.number.empty() ? "withheld" : call.number;
  }
  static Dictionary propertiesOf(const Call& call) {
    return {{"State", word(call.state)}, {"LineIdentification", line(call)}, {"Name", call.caller}};
  }
  Value all() const {
    Array array;
    for (const auto& [path, call] : calls_) {
      array.emplace_back(Array{path, propertiesOf(call)});
    }
    return array;
  }

  std::string pathOf(int call) const override {
    return std::string(kModem) + "/voicecall0" + std::to_string(call);
  }
  BusSlot exportCall(const std::string& path, const Call& /*call*/) override {
    return std::move(*bus_.addInterface(path, {kCall, {action(path, "Hangup")}, {}, {}}));
  }
  void announce(const std::string& path, const Call& call) override {
    bus_.emitSignal(kModem, kManager, "CallAdded", "oa{sv}", {path, propertiesOf(call)});
  }
  void announceState(const std::string& path, const Call& call) override {
    bus_.emitSignal(path, kCall, "PropertyChanged", "sv", {"State", word(call.state)});
  }
  void announceNumber(const std::string& path, const Call& call) override {
    bus_.emitSignal(path, kCall, "PropertyChanged", "sv", {"LineIdentification", line(call)});
  }
  void announceRemoval(const std::string& path) override {
    bus_.emitSignal(kModem, kManager, "CallRemoved", "o", {path});
  }

  std::vector<BusSlot> slots_;
};

}  // namespace

std::unique_ptr<FakeCallService> FakeCallService::named(const std::string& name,
                                                        BusConnection& bus) {
  if (name == "org.gnome.Calls") {
    return std::make_unique<FakeGnomeCalls>(bus);
  }
  if (name == "org.ofono") {
    return std::make_unique<FakeOfono>(bus);
  }
  return std::make_unique<FakeModemManager>(bus);
}

std::unique_ptr<CallSource> FakeCallService::sourceFor(const std::string& name, BusConnection& bus,
                                                       platform::Log& log) {
  if (name == "org.gnome.Calls") {
    return std::make_unique<GnomeCallsSource>(bus, log);
  }
  if (name == "org.ofono") {
    return std::make_unique<OfonoCallSource>(bus, log);
  }
  return std::make_unique<ModemManagerCallSource>(bus, log);
}

std::string FakeCallService::add(CallState state, const std::string& number,
                                 const std::string& caller) {
  const std::string path = pathOf(nextCall_++);
  Call& call = calls_[path];
  call.state = state;
  call.number = number;
  call.caller = caller;
  call.slot = exportCall(path, call);
  announce(path, call);
  return path;
}

void FakeCallService::setState(const std::string& path, CallState state) {
  calls_.at(path).state = state;
  announceState(path, calls_.at(path));
}

void FakeCallService::setNumber(const std::string& path, const std::string& number) {
  calls_.at(path).number = number;
  announceNumber(path, calls_.at(path));
}

void FakeCallService::remove(const std::string& path) {
  announceRemoval(path);
  calls_.erase(path);
}

BusMethod FakeCallService::action(const std::string& path, const std::string& method) {
  return {method, {}, {}, [this, line = method + " " + path](const BusMessage& call) {
            done.push_back(line);
            call.reply("", {});
          }};
}

void FakeCallService::changed(const std::string& path, const std::string& interface,
                              const Dictionary& properties) const {
  bus_.emitSignal(path, "org.freedesktop.DBus.Properties", "PropertiesChanged", "sa{sv}as",
                  {interface, properties, Array{}});
}

}  // namespace wrixel2::companion
