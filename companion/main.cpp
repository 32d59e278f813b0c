/// wrixel2-companion: the daemon's partner in the phone's shell.

#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include <CLI/CLI.hpp>
#include <sys/stat.h>
#include <unistd.h>

#include "companion/AnyDoNotDisturb.h"
#include "companion/BusNotificationMonitor.h"
#include "companion/Companion.h"
#include "companion/CompanionObject.h"
#include "companion/DaemonWatch.h"
#include "companion/DesktopUserAlerts.h"
#include "companion/GnomeDoNotDisturb.h"
#include "companion/LogindLock.h"
#include "companion/PhoshDoNotDisturb.h"
#include "companion/PlasmaDoNotDisturb.h"
#include "companion/ScreenSaverLock.h"
#include "companion/SeenApps.h"
#include "companion/Senses.h"
#include "companion/SettingsFileWatch.h"
#include "companion/WitnessedLock.h"
#include "platform/linux/BackgroundFileManager.h"
#include "platform/linux/LinuxPlatform.h"
#include "platform/linux/Process.h"
#include "platform/linux/PropertyListUserDefaults.h"
#include "platform/linux/SqliteHealthStore.h"
#include "platform/linux/WorkerThread.h"
#include "protocol/MBBLE/MBHealthKitManager.h"
#include "settings/OwnerPaths.h"

namespace {

using namespace wrixel2;

constexpr int kCannotStart = 1;
constexpr int kBadUsage = 2;

struct Options {
  std::string config;  ///< empty: the standard place
  std::string log;     ///< empty: by what standard error is
  bool logPrivate = false;
};

int fail(const std::string& message) {
  std::fprintf(stderr, "wrixel2-companion: %s\n", message.c_str());
  return kCannotStart;
}

/// So that a first settings file is noticed.
platform::ErrorOrNone makeDirectoryOf(const std::string& file) {
  ::umask(077);
  const std::filesystem::path directory = std::filesystem::path(file).parent_path();
  std::error_code error;
  std::filesystem::create_directories(directory, error);
  if (error) {
    return platform::errorFromErrno(error.value(), "cannot make " + directory.string());
  }
  return std::nullopt;
}

/// Each of them says nothing on a phone that it does not fit.
std::vector<std::unique_ptr<companion::LockWitness>> lockWitnesses(
    platform::linux::BusConnection& session, std::unique_ptr<companion::LogindLock> logind) {
  std::vector<std::unique_ptr<companion::LockWitness>> witnesses;
  witnesses.push_back(std::make_unique<companion::ScreenSaverLock>(
      session, "org.gnome.ScreenSaver", std::vector<std::string>{"/org/gnome/ScreenSaver"}));
  witnesses.push_back(std::make_unique<companion::ScreenSaverLock>(
      session, "org.freedesktop.ScreenSaver",
      std::vector<std::string>{"/org/freedesktop/ScreenSaver", "/ScreenSaver"}));
  witnesses.push_back(std::move(logind));
  return witnesses;
}

int run(const Options& options) {
  const auto paths = settings::OwnerPaths::standard();
  if (!paths) {
    return fail(paths.error().localizedDescription);
  }
  std::string settingsFile = paths->settingsFile;
  if (!options.config.empty()) {
    std::error_code error;
    settingsFile = std::filesystem::absolute(options.config, error).lexically_normal().string();
    if (error) {
      return fail("--config " + options.config + ": " + error.message());
    }
  } else if (const auto error = makeDirectoryOf(settingsFile)) {
    return fail(error->localizedDescription);
  }

  platform::linux::LinuxPlatformOptions platformOptions;
  platformOptions.tag = "wrixel2-companion";
  const bool toStandardError =
      options.log.empty() ? ::isatty(STDERR_FILENO) == 1 : options.log == "stderr";
  platformOptions.logTarget = toStandardError ? platform::linux::LogTarget::standardError
                                              : platform::linux::LogTarget::systemLog;
  platformOptions.showsPrivate = options.logPrivate;
  auto created = platform::linux::LinuxPlatform::create(platformOptions);
  if (!created) {
    return fail(created.error().localizedDescription);
  }
  platform::linux::LinuxPlatform& phone = **created;
  phone.runLoop().onTerminationSignal([&phone] { phone.runLoop().stop(0); });

  auto ownedPhosh = std::make_unique<companion::PhoshDoNotDisturb>(phone.sessionBus());
  companion::PhoshDoNotDisturb& phosh = *ownedPhosh;
  std::vector<std::unique_ptr<companion::DoNotDisturbSource>> quietSources;
  quietSources.push_back(std::make_unique<companion::GnomeDoNotDisturb>(
      phone.runLoop(), phone.sessionBus(), phone.log()));
  quietSources.push_back(std::move(ownedPhosh));
  quietSources.push_back(std::make_unique<companion::PlasmaDoNotDisturb>(phone.sessionBus()));
  companion::AnyDoNotDisturb doNotDisturb(std::move(quietSources));
  auto ownedLogind = std::make_unique<companion::LogindLock>();
  companion::LogindLock& logindLock = *ownedLogind;
  companion::WitnessedLock lock(lockWitnesses(phone.sessionBus(), std::move(ownedLogind)));
  // Whoever waits for an answer does not wait for the disk.
  platform::linux::WorkerThread worker(phone.runLoop());
  platform::linux::BackgroundFileManager files(worker, phone.log());
  platform::linux::LinuxPropertyLists propertyLists(files);
  companion::SeenApps seenApps(phone.runLoop(), phone.clock(), propertyLists, phone.log(),
                               paths->seenApps);
  seenApps.load();
  companion::DesktopUserAlerts userAlerts(phone.sessionBus(), phone.log());
  platform::linux::SqliteHealthStore healthStore(phone.paths().healthDatabase, "MI Band 2", worker,
                                                 phone.log());
  mbble::MBHealthKitManager healthKit(healthStore, phone.systemInfo(), phone.clock(), phone.log());
  platform::linux::PropertyListUserDefaults defaults(propertyLists, files, phone.log(),
                                                     paths->companionDefaults);
  companion::Senses senses({phone.runLoop(), phone.clock(), phone.log(), phone.sessionBus(),
                            phone.messageCenters(), userAlerts, defaults, logindLock});
  companion::Companion shell(
      {phone.messageCenters(), phone.darwinNotifyCenter(), phone.clock(), phone.log(), files,
       doNotDisturb, lock, userAlerts, healthKit, senses.button(), senses.bandWork(), seenApps},
      {settingsFile, paths->settingsCopy, paths->miFit},
      [&files, path = paths->settingsCopy](const platform::Bytes& copy) {
        static_cast<void>(files.writeAtomically(path, copy));
      });
  companion::CompanionObject object(phone.objectExporter(), seenApps, phone.log());
  const auto showStatus = [&] {
    object.setStatus({doNotDisturb.isActive(), lock.isLocked(), shell.settingsProblem()});
  };
  shell.onSettings([&](const settings::CompanionSettings& companionSettings) {
    senses.setSettings(companionSettings);
    phosh.setSilentProfiles(companionSettings.silentProfiles);
  });
  doNotDisturb.onChange([&] {
    shell.doNotDisturbChanged();
    showStatus();
  });
  lock.onChange([&] {
    shell.lockChanged();
    showStatus();
  });

  // What can be missed is watched before it is read, and the name comes last: whoever sees it can
  // count on everything.
  const auto fileWatch =
      companion::SettingsFileWatch::start(phone.runLoop(), settingsFile, [&shell, &showStatus] {
        shell.settingsFileChanged();
        showStatus();
      });
  if (!fileWatch) {
    return fail(fileWatch.error().localizedDescription);
  }
  const auto monitor = companion::BusNotificationMonitor::start(
      phone.runLoop(), phone.log(), phone.sessionBus().uniqueName(), shell);
  if (!monitor) {
    // Settings, the pairing key and alerts are served all the same.
    platform::Logger(phone.log(), "main")
        .error("Notifications of apps cannot be seen: " + monitor.error().localizedDescription);
  }
  if (const auto error = shell.serve()) {
    return fail(error->localizedDescription);
  }
  showStatus();
  const companion::DaemonWatch daemonWatch(
      phone.sessionBus(),
      [&shell, &senses] {
        shell.introduceToDaemon();
        senses.daemonIsReady();
      },
      [&shell] { shell.daemonGone(); });
  return phone.runLoop().run();
}

}  // namespace

int main(int argc, char** argv) {
  platform::linux::beginProcess("wrixel2-companion");
  Options options;
  CLI::App app("Answers the wrixel2d daemon's questions and tells it what happens on the phone.",
               "wrixel2-companion");
  app.set_version_flag("--version", "wrixel2-companion " WRIXEL2_VERSION);
  app.add_option("--config", options.config, "settings file")
      ->type_name("FILE")
      ->default_str("$XDG_CONFIG_HOME/wrixel2/settings.toml");
  app.add_option("--log", options.log, "where log lines go (default: stderr on a terminal)")
      ->check(CLI::IsMember({"syslog", "stderr"}));
  app.add_flag("--log-private", options.logPrivate, "show private texts in the log");
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& done) {
    return app.exit(done);
  } catch (const CLI::ParseError& error) {
    std::fprintf(stderr, "wrixel2-companion: %s (try --help)\n", error.what());
    return kBadUsage;
  }
  return run(options);
}
