#include "platform/linux/LinuxPlatform.h"

#include <utility>

#include "platform/linux/StderrLog.h"
#include "platform/linux/SyslogLog.h"
#include "platform/linux/XdgDirectories.h"

namespace wrixel2::platform::linux {
namespace {

std::unique_ptr<Log> makeLog(const LinuxPlatformOptions& options) {
  if (options.logTarget == LogTarget::standardError) {
    return std::make_unique<StderrLog>(options.tag, options.showsPrivate);
  }
  return std::make_unique<SyslogLog>(options.tag, options.showsPrivate);
}

}  // namespace

Result<LinuxPaths> LinuxPaths::standard(const std::optional<std::string>& root) {
  const auto directories = XdgDirectories::ofThisUser();
  if (!directories) {
    return directories.error();
  }
  const std::string phone = root.value_or("");
  const std::string preferences = "/var/mobile/Library/Preferences/";
  LinuxPaths paths;
  paths.infoPlist = phone + "/System/Library/CoreServices/SpringBoard.app/Info.plist";
  paths.healthDatabase = directories->data + "/wrixel2/health.sqlite";
  if (root) {
    paths.lockFile = phone + preferences + "org.corvale.wrixel2.lock.plist";
    paths.userDefaults = phone + preferences + "org.corvale.wrixel2d.plist";
  } else {
    paths.lockFile = directories->state + "/wrixel2/org.corvale.wrixel2.lock.plist";
    paths.userDefaults = directories->state + "/wrixel2/defaults.plist";
  }
  return paths;
}

Result<std::unique_ptr<LinuxPlatform>> LinuxPlatform::create(const LinuxPlatformOptions& options) {
  auto paths = LinuxPaths::standard(options.root);
  if (!paths) {
    return paths.error();
  }
  std::unique_ptr<LinuxPlatform> platform(new LinuxPlatform(options, std::move(*paths)));
  auto bus = BusConnection::openSession(platform->runLoop_);
  if (!bus) {
    return bus.error();
  }
  if (auto error = platform->connect(std::move(*bus), options.publisher)) {
    return std::move(*error);
  }
  return platform;
}

LinuxPlatform::LinuxPlatform(const LinuxPlatformOptions& options, LinuxPaths paths)
    : log_(makeLog(options)),
      paths_(std::move(paths)),
      runLoop_(*log_, zone_),
      propertyLists_(files_),
      userDefaults_(propertyLists_, files_, *log_, paths_.userDefaults),
      healthStore_(paths_.healthDatabase),
      systemInfo_{options.systemVersion, paths_.lockFile, paths_.infoPlist} {}

ErrorOrNone LinuxPlatform::connect(std::unique_ptr<BusConnection> sessionBus,
                                   const std::string& publisher) {
  sessionBus_ = std::move(sessionBus);
  sessionBus_->onDisconnected([this] {
    Logger(*log_, "LinuxPlatform").error("The session bus is gone");
    if (const Task callback = std::move(sessionBusLost_)) {
      callback();
    } else {
      runLoop_.stop(1);
    }
  });
  messageCenters_ = std::make_unique<SdBusMessageCenters>(*sessionBus_, *log_);
  if (!publisher.empty()) {
    publisher_ = std::make_unique<BusService>(*sessionBus_, publisher);
  }
  darwinNotifyCenter_ =
      std::make_unique<SdBusDarwinNotifyCenter>(*sessionBus_, *log_, publisher_.get());
  distributedNotificationCenter_ =
      std::make_unique<SdBusDistributedNotificationCenter>(*sessionBus_, *log_, publisher_.get());
  objectExporter_ = std::make_unique<SdBusObjectExporter>(*sessionBus_);
  if (publisher_ == nullptr) {
    return std::nullopt;
  }
  auto error = publisher_->startAndWait();
  if (!error) {
    error = darwinNotifyCenter_->serveCallers();
  }
  return error ? error : distributedNotificationCenter_->serveCallers();
}

Platform LinuxPlatform::platform(BluetoothRadio& radio) {
  return {runLoop_,
          clock_,
          zone_,
          *log_,
          *messageCenters_,
          *darwinNotifyCenter_,
          *distributedNotificationCenter_,
          *objectExporter_,
          radio,
          healthStore_,
          propertyLists_,
          userDefaults_,
          files_,
          systemInfo_,
          serviceManager_};
}

}  // namespace wrixel2::platform::linux
