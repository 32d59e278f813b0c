#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "band/BandObserver.h"

namespace wrixel2::band {

class VirtualBand;

/// Keeps what a band received and did, for tests and views.
class BandRecorder final : public BandObserver {
 public:
  struct Write {
    platform::UUID service;
    platform::UUID characteristic;
    platform::Bytes value;
    platform::WriteType type = platform::WriteType::withResponse;

    friend bool operator==(const Write&, const Write&) = default;
  };
  struct Display {
    std::string text;
    platform::Bytes icon;

    friend bool operator==(const Display&, const Display&) = default;
  };
  struct Vibration {
    unsigned on = 0;   ///< milliseconds
    unsigned off = 0;  ///< milliseconds
    unsigned count = 0;

    friend bool operator==(const Vibration&, const Vibration&) = default;
  };

  /// Observes the band, which is borrowed and must live longer.
  explicit BandRecorder(VirtualBand& band);
  BandRecorder(const BandRecorder&) = delete;
  BandRecorder& operator=(const BandRecorder&) = delete;
  ~BandRecorder() override;

  const std::vector<Write>& writes() const { return writes_; }
  const std::vector<Display>& displays() const { return displays_; }
  const std::vector<Vibration>& vibrations() const { return vibrations_; }
  const std::vector<BandProperty>& changes() const { return changes_; }
  void clear();

  void bandDidReceiveWrite(const platform::UUID& service, const platform::UUID& characteristic,
                           platform::ByteView value, platform::WriteType type) override;
  void bandDidDisplay(std::string_view text, platform::ByteView icon) override;
  void bandDidVibrate(unsigned on, unsigned off, unsigned count) override;
  void bandDidChange(BandProperty property) override;

 private:
  VirtualBand& band_;
  std::vector<Write> writes_;
  std::vector<Display> displays_;
  std::vector<Vibration> vibrations_;
  std::vector<BandProperty> changes_;
};

}  // namespace wrixel2::band
