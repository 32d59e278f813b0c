#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/Log.h"
#include "platform/ObjectExporter.h"

namespace wrixel2::companion {

class SeenApps;

/// What the companion shows of itself to other programs.
struct CompanionStatus {
  bool doNotDisturb = false;
  bool isLocked = false;
  std::string settingsProblem;  ///< of a settings file that is not in force; empty for none

  friend bool operator==(const CompanionStatus&, const CompanionStatus&) = default;
};

/// The companion's state on the session bus: interface org.corvale.wrixel2.Companion of the object
/// that its message center has.
class CompanionObject {
 public:
  /// The apps outlive the object. Without an export the log says so, and the rest is as usual.
  CompanionObject(platform::ObjectExporter& exporter, const SeenApps& apps, platform::Log& log);
  CompanionObject(const CompanionObject&) = delete;
  CompanionObject& operator=(const CompanionObject&) = delete;

  /// Announces what has changed.
  void setStatus(CompanionStatus status);

 private:
  CompanionStatus status_;
  std::unique_ptr<platform::ExportedObject> object_;
};

}  // namespace wrixel2::companion
