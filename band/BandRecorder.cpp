#include "band/BandRecorder.h"

#include "band/VirtualBand.h"

namespace wrixel2::band {

BandRecorder::BandRecorder(VirtualBand& band) : band_(band) { band_.addObserver(*this); }

BandRecorder::~BandRecorder() { band_.removeObserver(*this); }

void BandRecorder::clear() {
  writes_.clear();
  displays_.clear();
  vibrations_.clear();
  changes_.clear();
}

void BandRecorder::bandDidReceiveWrite(const platform::UUID& service,
                                       const platform::UUID& characteristic,
                                       platform::ByteView value, platform::WriteType type) {
  writes_.push_back({service, characteristic, platform::Bytes(value.begin(), value.end()), type});
}

void BandRecorder::bandDidDisplay(std::string_view text, platform::ByteView icon) {
  displays_.push_back({std::string(text), platform::Bytes(icon.begin(), icon.end())});
}

void BandRecorder::bandDidVibrate(unsigned on, unsigned off, unsigned count) {
  vibrations_.push_back({on, off, count});
}

void BandRecorder::bandDidChange(BandProperty property) { changes_.push_back(property); }

}  // namespace wrixel2::band
