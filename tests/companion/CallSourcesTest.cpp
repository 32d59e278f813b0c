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
    source = FakeCallService::sourceFor(GetParam(), *own, log);
    source->onChange([this] { ++changes; });
  }
  /// "number name" of the calls that ring, once all that is under way has arrived.
  Lines ringing() {
    for (int round = 0; round < 30; ++round) {
      serveAll();
    }
    Lines lines;
    for (const auto& [id, call] : source->ringing()) {
      lines.push_back(call.number + " " + call.name);
    }
    return lines;
  }
  /// Not every service knows names.
  std::string annas() const { return hasNames ? "+491 Anna" : "+491 "; }

  bool hasNames = std::string_view(GetParam()) != "org.freedesktop.ModemManager1";
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
      const auto call = service->add(beginning, "+491", "Anna");
      EXPECT_EQ(ringing(), Lines{annas()});
      service->setState(call, end);
      EXPECT_EQ(ringing(), Lines{});
      service->remove(call);
    }
  }
  const auto removed = service->add(CallState::incoming, "+491", "Anna");
  EXPECT_EQ(ringing(), Lines{annas()});
  service->remove(removed);
  EXPECT_EQ(ringing(), Lines{});

  changes = 0;
  const auto dialled = service->add(CallState::outgoing, "+491", "Anna");
  service->setState(dialled, CallState::active);
  service->remove(dialled);
  service->setState(service->add(CallState::active, "", ""), CallState::over);
  EXPECT_EQ(ringing(), Lines{});
  EXPECT_EQ(changes, 0) << "calls that never ring";
}

TEST_P(CallSourcesTest, KnowsWhoCalls) {
  service->appear();
  follow();
  const auto call = service->add(CallState::incoming, "", "");
  EXPECT_EQ(ringing(), Lines{" "});
  service->setNumber(call, "+492");
  EXPECT_EQ(ringing(), Lines{"+492 "});
  service->add(CallState::waiting, "+491", "Anna");
  EXPECT_EQ(ringing(), (Lines{"+492 ", annas()}));
  service->setState(call, CallState::active);
  EXPECT_EQ(ringing(), Lines{annas()});
}

TEST_P(CallSourcesTest, TheServiceComesAndGoes) {
  follow();
  EXPECT_EQ(ringing(), Lines{});
  EXPECT_EQ(source->isThere(), false);
  const auto call = service->add(CallState::incoming, "+491", "Anna");
  EXPECT_EQ(ringing(), Lines{}) << "it does not have its name yet";
  service->appear();
  EXPECT_EQ(ringing(), Lines{annas()}) << "rings already";
  EXPECT_EQ(source->isThere(), true);
  service->vanish();
  EXPECT_EQ(ringing(), Lines{});
  EXPECT_EQ(source->isThere(), false);
  service->setState(call, CallState::waiting);
  EXPECT_EQ(ringing(), Lines{}) << "not the service's any more";
  service->appear();
  EXPECT_EQ(ringing(), Lines{annas()});
  if (service->hasModem()) {
    service->removeModem();
    EXPECT_EQ(ringing(), Lines{});
  }
}

TEST_P(CallSourcesTest, ACallThatEndsWhileItIsAskedForIsOver) {
  service->appear();
  follow();
  ringing();
  const auto call = service->add(CallState::incoming, "+491", "Anna");
  service->remove(call);
  const auto answered = service->add(CallState::incoming, "+491", "Anna");
  service->setState(answered, CallState::active);
  EXPECT_EQ(ringing(), Lines{});
}

TEST_P(CallSourcesTest, HangsUpTheCallThatIsMeant) {
  service->appear();
  follow();
  service->add(CallState::incoming, "+492", "Ben");
  const auto call = service->add(CallState::waiting, "+491", "Anna");
  ringing();
  source->hangUp(call);
  ringing();
  EXPECT_EQ(service->done, Lines{"Hangup " + call});
  EXPECT_EQ(log.lines, Lines{});
  service->vanish();
  source->hangUp(call);
  ringing();
  EXPECT_EQ(log.count("WARN The call is not rejected"), 1U);
  EXPECT_EQ(service->done.size(), 1U);
}

INSTANTIATE_TEST_SUITE_P(Services, CallSourcesTest,
                         testing::Values("org.gnome.Calls", "org.freedesktop.ModemManager1",
                                         "org.ofono"),
                         [](const auto& testCase) {
                           const std::string name = testCase.param;
                           return name == "org.ofono"         ? "Ofono"
                                  : name == "org.gnome.Calls" ? "GnomeCalls"
                                                              : "ModemManager";
                         });

}  // namespace
}  // namespace wrixel2::companion
