#include "ctl/Context.h"

#include "ctl/KeyStore.h"
#include "ctl/TextRows.h"

namespace wrixel2::ctl {

ExitStatus Context::fail(const platform::Error& error) const {
  for (const ExitStatus status :
       {ExitStatus::badUsage, ExitStatus::notRunning, ExitStatus::timedOut}) {
    if (error.code == kExitStatusCodes + static_cast<long>(status)) {
      return fail(status, error.localizedDescription);
    }
  }
  return fail(ExitStatus::failed, error.localizedDescription);
}

void Context::warnWithoutCompanion() const {
  const auto session = openSession();
  const auto runs =
      session ? (*session)->isRunning(Peer::companion) : platform::Result<bool>(false);
  if (!runs || !*runs) {
    console.complain("the companion does not run: the change takes effect once it is started");
  }
}

platform::Result<std::unique_ptr<Session>> Context::openSessionWithDaemon() const {
  auto session = openSession();
  if (!session) {
    return failure(ExitStatus::notRunning, session.error().localizedDescription);
  }
  const auto runs = (*session)->isRunning(Peer::daemon);
  if (!runs) {
    return failure(ExitStatus::failed, runs.error().localizedDescription);
  }
  if (!*runs) {
    return failure(ExitStatus::notRunning,
                   "the daemon does not run; start it with \"systemctl --user start wrixel2d\", or "
                   "as wrixel2d");
  }
  return session;
}

platform::Result<std::unique_ptr<Session>> Context::openSessionForBand() const {
  auto session = openSessionWithDaemon();
  if (!session) {
    return session;
  }
  const auto properties = (*session)->properties(Peer::daemon);
  const platform::Dictionary status =
      properties && *properties ? **properties : platform::Dictionary{};
  const std::string problem = platform::textForKey(status, "Problem").value_or("");
  if (!problem.empty()) {
    return failure(ExitStatus::timedOut, "the band cannot be reached: " + printable(problem));
  }
  const std::string verdict = platform::textForKey(status, "Authentication").value_or("");
  if (platform::boolForKey(status, "Initialized") || verdict == "accepted") {
    return session;
  }
  if (!KeyStore(files, propertyLists, paths.miFit).key()) {
    return failure(ExitStatus::failed,
                   "there is no pairing key that the band could accept; \"wrixel2ctl key import\" "
                   "takes one over");
  }
  if (verdict == "refused") {
    return failure(ExitStatus::failed, std::string(kKeyRefused));
  }
  return session;
}

}  // namespace wrixel2::ctl
