#include <string>
#include <vector>

#include "tests/companion/FakeCallServices.h"
#include "tests/platform/linux/BusTest.h"

namespace wrixel2::companion {
namespace {

using Lines = std::vector<std::string>;

/// The same life of calls at each of the services that know of them.
class CallSourcesTest : public platform::linux::BusTest,
                        public testing::WithParamInterface<const char*> {
 protected:
  void follow() {
    source = service->source(*own, log);
    source->onChange([this] { ++changes; });
  }
  /// "number name" of the calls that ring, once all that is under way has arrived.
  Lines ringing() {
    settle();
    Lines lines;
    for (const auto& [id, call] : source->ringing()) {
      lines.push_back(call.number + " " + call.name);
    }
    return lines;
  }
  std::string anna(CallState state) { return service->add(state, "+491", "Anna"); }
  /// Not every service knows names.
  const Lines kAnnas{std::string_view(GetParam()) == "org.freedesktop.ModemManager1" ? "+491 "
                                                                                     : "+491 Anna"};

  std::unique_ptr<FakeCallService> service = FakeCallService::named(GetParam(), *other);
  std::unique_ptr<CallSource> source;
  int changes = 0;
};

TEST_P(CallSourcesTest, ACallRingsUntilItIsAnsweredRejectedOrMissed) {
  service->appear();
  follow();
  EXPECT_EQ(source->isThere(), std::nullopt);
  EXPECT_EQ(ringing(), Lines{});
  EXPECT_EQ(source->isThere(), true);
  for (const CallState end : {CallState::active, CallState::over}) {
    for (const CallState beginning : {CallState::incoming, CallState::waiting}) {
      const auto call = anna(beginning);
      EXPECT_EQ(ringing(), kAnnas);
      service->setState(call, end);
      EXPECT_EQ(ringing(), Lines{});
      service->remove(call);
    }
  }
  const auto removed = anna(CallState::incoming);
  EXPECT_EQ(ringing(), kAnnas);
  service->remove(removed);
  EXPECT_EQ(ringing(), Lines{});

  changes = 0;
  const auto dialled = anna(CallState::outgoing);
  service->setState(dialled, CallState::active);
  service->remove(dialled);
  service->setState(service->add(CallState::active, "", ""), CallState::over);
  EXPECT_EQ(ringing(), Lines{});
  EXPECT_EQ(changes, 0) << "calls that never ring";

  // One that ends while it is still asked for.
  service->remove(anna(CallState::incoming));
  service->setState(anna(CallState::incoming), CallState::active);
  EXPECT_EQ(ringing(), Lines{});
}

TEST_P(CallSourcesTest, KnowsWhoCallsAndHangsUpTheCallThatIsMeant) {
  service->appear();
  follow();
  const auto bens = service->add(CallState::incoming, "", "");
  EXPECT_EQ(ringing(), Lines{" "});
  service->setNumber(bens, "+492");
  EXPECT_EQ(ringing(), Lines{"+492 "});
  const auto annas = anna(CallState::waiting);
  EXPECT_EQ(ringing(), (Lines{"+492 ", kAnnas[0]}));
  source->hangUp(annas);
  service->setState(bens, CallState::active);
  EXPECT_EQ(ringing(), kAnnas);
  EXPECT_EQ(service->done, Lines{"Hangup " + annas});
  EXPECT_EQ(log.lines, Lines{});
  service->vanish();
  source->hangUp(annas);
  ringing();
  EXPECT_EQ(log.count("WARN The call is not rejected"), 1U);
  EXPECT_EQ(service->done.size(), 1U);
}

TEST_P(CallSourcesTest, TheServiceComesAndGoes) {
  follow();
  EXPECT_EQ(ringing(), Lines{});
  EXPECT_EQ(source->isThere(), false);
  const auto call = anna(CallState::incoming);
  EXPECT_EQ(ringing(), Lines{}) << "it does not have its name yet";
  service->appear();
  EXPECT_EQ(ringing(), kAnnas) << "rings already";
  EXPECT_EQ(source->isThere(), true);
  service->vanish();
  EXPECT_EQ(ringing(), Lines{});
  EXPECT_EQ(source->isThere(), false);
  service->setState(call, CallState::waiting);
  EXPECT_EQ(ringing(), Lines{}) << "not the service's any more";
  service->appear();
  EXPECT_EQ(ringing(), kAnnas);
  service->removeModem();
  EXPECT_EQ(ringing(), Lines{});
}

INSTANTIATE_TEST_SUITE_P(Services, CallSourcesTest,
                         testing::Values("org.gnome.Calls", "org.freedesktop.ModemManager1",
                                         "org.ofono"),
                         [](const auto& testCase) {
                           const std::string name = testCase.param;
                           return name.substr(name.rfind('.') + 1);
                         });

}  // namespace
}  // namespace wrixel2::companion
