#pragma once

#include <cstdint>
#include <memory>

namespace wrixel2::mbmodel {
class MBVibrateModel;
}

namespace wrixel2::mbservices {

/// What the services ask of whoever keeps the session with the band.
class SessionManager {
 public:
  virtual ~SessionManager() = default;

  virtual void setHeartRateActive(bool active) = 0;
  virtual void setHeartRateRequested(bool requested) = 0;
  /// A measured value in beats per minute; 0 is a failed measurement.
  virtual void writeHeartRate(std::int64_t value) = 0;
  /// No mode shows nothing, but withdraws an earlier stop.
  virtual void sendAlertToPeripheralsWithMode(
      const std::shared_ptr<mbmodel::MBVibrateModel>& mode) = 0;
  /// 0 silent, 1 with a buzz, 2 continuous, 3 the same mode as before.
  virtual void requestHeartRequestWithMode(std::int64_t mode) = 0;
  /// Tells the preferences pane what is known of the band.
  virtual void sendPeripheralCapabilities() = 0;
  /// The band has said whether it accepts the pairing key.
  virtual void authVerdictGiven() = 0;
  /// Whether the link is to be kept up all the time.
  virtual bool isConnectedMode() const = 0;

 protected:
  SessionManager() = default;
  SessionManager(const SessionManager&) = default;
  SessionManager& operator=(const SessionManager&) = default;
};

}  // namespace wrixel2::mbservices
