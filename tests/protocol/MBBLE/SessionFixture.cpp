#include "tests/protocol/MBBLE/SessionFixture.h"

#include <fmt/format.h>

namespace wrixel2::mbble {

SessionFixture::SessionFixture() {
  phone.radio.timings = {.advertisingInterval = Milliseconds(100),
                         .connect = Milliseconds(0),
                         .exchange = Milliseconds(0),
                         .writeCommand = Milliseconds(0),
                         .notification = Milliseconds(0)};
  band = addBand(band::kDefaultAddress);
  band->addObserver(*this);
}

SessionFixture::~SessionFixture() { band->removeObserver(*this); }

std::shared_ptr<band::VirtualBand> SessionFixture::addBand(std::string_view address,
                                                           std::string_view name) {
  auto added = std::make_shared<band::VirtualBand>(phone.handle(), address, name);
  phone.radio.addBand(added);
  return added;
}

void SessionFixture::makeManager() {
  manager = MBCentralManager::create(phone.handle(), keys, healthKit, {});
  forgetRecords();
}

void SessionFixture::connectBand() {
  makeManager();
  runFor(Seconds(3));
  ASSERT_EQ(manager->bands().size(), 1U);
  ASSERT_TRUE(peripheral()->isInitialized());
  forgetRecords();
}

void SessionFixture::disconnectBand() {
  manager->disconnectMi();
  settle();
  forgetRecords();
}

void SessionFixture::forgetRecords() {
  recordsBegan_ = phone.clock.monotonicNow();
  writes_.clear();
  phone.log.clear();
  phone.distributedNotificationCenter.clearPostings();
  phone.messageCenters.clearSentMessages();
}

std::shared_ptr<mbmodel::MBVibrateModel> SessionFixture::alert(std::uint64_t repeat,
                                                               std::uint64_t icon,
                                                               std::uint64_t pattern,
                                                               std::optional<std::string> text) {
  return std::make_shared<mbmodel::MBVibrateModel>(repeat, icon, pattern, std::move(text));
}

std::vector<std::string> SessionFixture::writesTo(std::string_view characteristic) const {
  std::vector<std::string> found;
  for (const auto& line : writes_) {
    const auto rest = line.substr(line.find(' ') + 1);
    if (rest.starts_with(characteristic)) {
      found.push_back(rest.substr(rest.find(' ') + 1));
    }
  }
  return found;
}

std::string SessionFixture::shown(const platform::Value& value) {
  if (const auto* text = value.text()) {
    return *text;
  }
  return std::holds_alternative<bool>(value.variant()) ? (value.boolValue() ? "true" : "false")
                                                       : std::to_string(value.longValue());
}

std::vector<std::string> SessionFixture::posted(std::string_view name, std::string_view key) const {
  std::vector<std::string> values;
  for (const auto& posting : phone.distributedNotificationCenter.postings(name)) {
    values.push_back(shown(posting.userInfo.find(key)->second));
  }
  return values;
}

std::vector<long> SessionFixture::watchdogs() const {
  std::vector<long> seconds;
  for (const auto& timer : phone.runLoop.persistentTimers("com.corvale.wrixel2.wd")) {
    seconds.push_back(std::chrono::duration_cast<Seconds>(timer.interval).count());
  }
  return seconds;
}

void SessionFixture::bandDidReceiveWrite(const platform::UUID& /*service*/,
                                         const platform::UUID& characteristic,
                                         platform::ByteView value, platform::WriteType type) {
  const auto since =
      std::chrono::duration_cast<Milliseconds>(phone.clock.monotonicNow() - recordsBegan_);
  writes_.push_back(fmt::format("{} {} {}{}", since.count(), characteristic.text().substr(0, 8),
                                platform::hexText(value),
                                type == platform::WriteType::withResponse ? " ack" : ""));
}

}  // namespace wrixel2::mbble
