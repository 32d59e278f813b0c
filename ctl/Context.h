#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "ctl/Console.h"
#include "ctl/ExitStatus.h"
#include "ctl/HostFacts.h"
#include "ctl/Session.h"
#include "platform/Clock.h"
#include "platform/FileManager.h"
#include "platform/PropertyLists.h"

namespace wrixel2::ctl {

/// What is wrong, and what mends it, where the band's last word on the pairing key was no.
inline constexpr std::string_view kKeyRefused =
    "the band refuses the pairing key; import the right one with \"wrixel2ctl key import\"";

/// The owner's files.
struct OwnerFiles {
  std::string settings;
  std::string miFit;  ///< the folder with the pairing key
  std::string healthDatabase;
};

/// All that a command has to do with. What it refers to outlives it.
struct Context {
  Console& console;
  const platform::Clock& clock;
  const platform::TimeZone& timeZone;
  platform::FileManager& files;
  platform::PropertyLists& propertyLists;
  OwnerFiles paths;
  /// Fails without a session bus.
  std::function<platform::Result<std::unique_ptr<Session>>()> openSession;
  std::function<HostFacts()> findHostFacts;
  bool json = false;  ///< output for programs

  ExitStatus fail(ExitStatus status, std::string_view sentence) const {
    console.complain(sentence);
    return status;
  }
  /// Of an error that carries an exit status; any other code is `failed`.
  ExitStatus fail(const platform::Error& error) const;

  /// A changed settings file takes effect by itself, but not without the companion.
  void warnWithoutCompanion() const;

  /// A session in which the daemon runs. The error carries its exit status.
  platform::Result<std::unique_ptr<Session>> openSessionWithDaemon() const;
  /// One in which the daemon knows nothing that would keep it from reaching the band: there is no
  /// use in waiting else.
  platform::Result<std::unique_ptr<Session>> openSessionForBand() const;
};

}  // namespace wrixel2::ctl
