#include "tests/ctl/CtlFixture.h"

#include "ctl/Json.h"

namespace wrixel2::ctl {

platform::ErrorOrNone FakeSession::tellDaemon(std::string_view message,
                                              const platform::Dictionary& userInfo) {
  return send(std::string(message),
              userInfo.empty() ? "" : " " + jsonText(userInfo, JsonLayout::oneLine));
}

bool FakeSession::waitUntil(const std::function<bool()>& condition, platform::TimeInterval limit) {
  const platform::TimeInterval deadline = world_.now + limit;
  while (!condition()) {
    const auto next = world_.pending.begin();
    if (next == world_.pending.end() || next->first > deadline) {
      world_.now = deadline;
      return condition();
    }
    world_.now = next->first;
    const auto event = std::move(next->second);
    world_.pending.erase(next);
    event();
  }
  return true;
}

std::string CtlTest::settingsText() const {
  const auto contents = files.contentsAtPath(settingsFile);
  return contents ? std::string(contents->begin(), contents->end()) : "";
}

}  // namespace wrixel2::ctl
