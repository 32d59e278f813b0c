#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>

namespace wrixel2::companion {

/// A call from outside that waits to be answered.
struct RingingCall {
  std::string number;  ///< empty while it is not known, and where it is withheld
  std::string name;    ///< of the caller, empty where the phone does not know it

  friend bool operator==(const RingingCall&, const RingingCall&) = default;
};

/// Somebody on the phone who knows of calls.
class CallSource {
 public:
  /// By the source's own name for each.
  using RingingCalls = std::map<std::string, RingingCall>;

  virtual ~CallSource() = default;

  /// Called after every change of what the source tells; the sources' owner sets it once.
  virtual void onChange(std::function<void()> changed) = 0;

  /// Whether the program behind it runs; none until that is known.
  virtual std::optional<bool> isThere() const = 0;
  virtual const RingingCalls& ringing() const = 0;

  /// The call rings on without a sound, where the program can do that.
  virtual void silence(const std::string& call) = 0;
  virtual void hangUp(const std::string& call) = 0;
};

}  // namespace wrixel2::companion
