#include "ctl/HeartRatePlot.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <vector>

#include <fmt/format.h>

#include "ctl/TimeText.h"
#include "platform/Utf8.h"

namespace wrixel2::ctl {

namespace {

constexpr int kRows = 12;
constexpr int kLabelColumns = 6;  ///< "  120 "
constexpr int kLeastColumns = 20;
constexpr int kMostColumns = 400;
constexpr double kRateStep = 10;
/// A pause of more usual ones than this is a gap.
constexpr int kGapFactor = 4;
constexpr char32_t kFirstBraille = 0x2800;

/// Dots in cells of a terminal: two by four a cell as braille, one as ASCII.
class Canvas {
 public:
  Canvas(int columns, int rows, bool isUtf8)
      : columns_(columns),
        rows_(rows),
        isUtf8_(isUtf8),
        cells_(static_cast<std::size_t>(columns) * static_cast<std::size_t>(rows)) {}

  int width() const { return columns_ * (isUtf8_ ? 2 : 1); }
  int height() const { return rows_ * (isUtf8_ ? 4 : 1); }

  void dot(int x, int y) {
    // The bits of a braille character by column and row (Unicode, "Braille Patterns").
    constexpr unsigned kBits[2][4] = {{0x01, 0x02, 0x04, 0x40}, {0x08, 0x10, 0x20, 0x80}};
    const int column = isUtf8_ ? x / 2 : x;
    const int row = isUtf8_ ? y / 4 : y;
    cells_[indexOf(column, row)] |= isUtf8_ ? kBits[x % 2][y % 4] : 1U;
  }

  /// Both ends and what lies between them.
  void line(int x0, int y0, int x1, int y1) {
    const int steps = std::max({std::abs(x1 - x0), std::abs(y1 - y0), 1});
    for (int i = 0; i <= steps; ++i) {
      dot(x0 + (x1 - x0) * i / steps, y0 + (y1 - y0) * i / steps);
    }
  }

  std::string row(int index) const {
    std::string text;
    for (int column = 0; column < columns_; ++column) {
      const unsigned bits = cells_[indexOf(column, index)];
      if (isUtf8_ && bits != 0) {
        text += platform::utf8FromCharacter(kFirstBraille + bits);
      } else {
        text += bits != 0 ? '*' : ' ';
      }
    }
    text.erase(text.find_last_not_of(' ') + 1);
    return text;
  }

 private:
  std::size_t indexOf(int column, int row) const {
    return static_cast<std::size_t>(row) * static_cast<std::size_t>(columns_) +
           static_cast<std::size_t>(column);
  }

  int columns_;
  int rows_;
  bool isUtf8_;
  std::vector<unsigned> cells_;
};

/// Rounded to whole steps, with at least one between them.
struct RateRange {
  explicit RateRange(const Samples& samples) {
    const auto [lowest, highest] = std::minmax_element(
        samples.begin(), samples.end(),
        [](const auto& one, const auto& other) { return one.quantity < other.quantity; });
    least = std::floor(lowest->quantity / kRateStep) * kRateStep;
    most = std::max(std::ceil(highest->quantity / kRateStep) * kRateStep, least + kRateStep);
  }
  double least = 0;
  double most = 0;
};

platform::TimeInterval longestPause(const Samples& samples) {
  std::vector<platform::TimeInterval> pauses;
  for (std::size_t i = 1; i < samples.size(); ++i) {
    pauses.push_back(samples[i].startDate - samples[i - 1].startDate);
  }
  if (pauses.empty()) {
    return {};
  }
  const auto middle = pauses.begin() + static_cast<std::ptrdiff_t>(pauses.size() / 2);
  std::nth_element(pauses.begin(), middle, pauses.end());
  return *middle * kGapFactor;
}

void draw(const Samples& samples, const PlotFrame& frame, const RateRange& range, Canvas& canvas) {
  const auto span = static_cast<double>(
      std::max<platform::TimeInterval>(frame.until - frame.from, std::chrono::seconds(1)).count());
  const auto place = [](double share, int size) {
    return std::clamp(static_cast<int>(std::lround(share * (size - 1))), 0, size - 1);
  };
  const auto pause = longestPause(samples);
  const platform::QuantitySample* before = nullptr;
  int x0 = 0;
  int y0 = 0;
  for (const platform::QuantitySample& sample : samples) {
    const int x =
        place(static_cast<double>((sample.startDate - frame.from).count()) / span, canvas.width());
    const int y =
        place((range.most - sample.quantity) / (range.most - range.least), canvas.height());
    const bool isJoined = before != nullptr && sample.startDate - before->startDate <= pause;
    canvas.line(isJoined ? x0 : x, isJoined ? y0 : y, x, y);
    before = &sample;
    x0 = x;
    y0 = y;
  }
}

std::string timeAxis(const PlotFrame& frame, int columns, const platform::TimeZone& zone) {
  const std::string from = shortTime(frame.from, frame.until, zone);
  const std::string until = shortTime(frame.until, frame.until, zone);
  const std::string middle =
      shortTime(frame.from + (frame.until - frame.from) / 2, frame.until, zone);
  std::string line(kLabelColumns + 1, ' ');
  line += from;
  const int end = kLabelColumns + 1 + columns - static_cast<int>(until.size());
  const int half = kLabelColumns + 1 + (columns - static_cast<int>(middle.size())) / 2;
  const auto put = [&line](int column, const std::string& text) {
    if (column > static_cast<int>(line.size()) + 1) {
      line.append(static_cast<std::size_t>(column) - line.size(), ' ');
      line += text;
    }
  };
  if (half + static_cast<int>(middle.size()) + 1 < end) {
    put(half, middle);
  }
  put(end, until);
  return line;
}

}  // namespace

std::string heartRatePlot(const Samples& samples, const PlotFrame& frame,
                          const platform::TimeZone& zone) {
  if (samples.empty()) {
    return heartRateLines(samples, zone);
  }
  const int columns = std::clamp(frame.columns, kLeastColumns, kMostColumns) - kLabelColumns - 1;
  Canvas canvas(columns, kRows, frame.isUtf8);
  const RateRange range(samples);
  draw(samples, frame, range, canvas);

  std::string text = "  bpm\n";
  for (int row = 0; row < kRows; ++row) {
    const bool isLabelled = row == 0 || row == kRows / 2 || row == kRows - 1;
    const double rate = range.most - (range.most - range.least) * row / (kRows - 1);
    text += isLabelled ? fmt::format("{:>5.0f} ", rate) : std::string(kLabelColumns, ' ');
    text += frame.isUtf8 ? (isLabelled ? "┤" : "│") : (isLabelled ? "+" : "|");
    text += canvas.row(row) + "\n";
  }
  text += std::string(kLabelColumns, ' ') + (frame.isUtf8 ? "└" : "+");
  for (int column = 0; column < columns; ++column) {
    text += frame.isUtf8 ? "─" : "-";
  }
  return text + "\n" + timeAxis(frame, columns, zone) + "\n";
}

}  // namespace wrixel2::ctl
