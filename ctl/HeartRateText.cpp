#include "ctl/HeartRateText.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include <fmt/format.h>

#include "ctl/Json.h"
#include "ctl/TimeText.h"
#include "platform/UUID.h"

namespace wrixel2::ctl {

namespace {

using platform::Dictionary;
using platform::QuantitySample;

std::int64_t unixSeconds(platform::Date date) {
  return std::chrono::floor<std::chrono::seconds>(date).time_since_epoch().count();
}

/// Whole rates, as bands report them, without a fraction.
platform::Value numberOf(const QuantitySample& sample) {
  const double whole = std::round(sample.quantity);
  if (whole == sample.quantity && std::abs(whole) < 1e9) {
    return static_cast<std::int64_t>(whole);
  }
  return sample.quantity;
}

/// By what makes a sample one of its own: a second import of the same export adds nothing.
std::string identifierOf(const QuantitySample& sample) {
  static const platform::UUID kNameSpace =
      platform::UUID::withString("5f0f2f4e-3f0c-4bb5-9d6a-2f1c7a0de9b1");
  return platform::UUID::version5(
             kNameSpace, fmt::format("{}/{}/{}", sample.type,
                                     sample.startDate.time_since_epoch().count(), sample.quantity))
      .longText();
}

Dictionary dataPointOf(const QuantitySample& sample, const platform::TimeZone& zone) {
  const std::string start = internetTime(sample.startDate, zone);
  Dictionary frame{{"date_time", start}};
  if (sample.endDate > sample.startDate) {
    frame = {{"time_interval", Dictionary{{"start_date_time", start},
                                          {"end_date_time", internetTime(sample.endDate, zone)}}}};
  }
  return {
      {"header",
       Dictionary{{"id", identifierOf(sample)},
                  {"creation_date_time", start},
                  {"acquisition_provenance",
                   Dictionary{{"source_name", "Mi Band 2"}, {"modality", "sensed"}}},
                  {"schema_id",
                   Dictionary{{"namespace", "omh"}, {"name", "heart-rate"}, {"version", "2.0"}}}}},
      {"body",
       Dictionary{{"heart_rate", Dictionary{{"value", numberOf(sample)}, {"unit", "beats/min"}}},
                  {"effective_time_frame", std::move(frame)}}}};
}

}  // namespace

std::string heartRateLines(const Samples& samples, const platform::TimeZone& zone) {
  if (samples.empty()) {
    return "No heart rate was measured in that time.\n";
  }
  std::string text;
  for (const QuantitySample& sample : samples) {
    text += fmt::format("{}  {:>3.0f} bpm\n", localTime(sample.startDate, zone), sample.quantity);
  }
  const auto [least, most] = std::minmax_element(
      samples.begin(), samples.end(),
      [](const auto& one, const auto& other) { return one.quantity < other.quantity; });
  const double sum = std::accumulate(
      samples.begin(), samples.end(), 0.0,
      [](double total, const QuantitySample& sample) { return total + sample.quantity; });
  return text + fmt::format("{} measured, {:.0f} to {:.0f} bpm, {:.0f} on average\n",
                            samples.size(), least->quantity, most->quantity,
                            sum / static_cast<double>(samples.size()));
}

std::string heartRateCsv(const Samples& samples, const platform::TimeZone& zone) {
  std::string text = "time,unix,bpm\n";
  for (const QuantitySample& sample : samples) {
    text +=
        fmt::format("{},{},{}\n", internetTime(sample.startDate, zone),
                    unixSeconds(sample.startDate), jsonText(numberOf(sample), JsonLayout::oneLine));
  }
  return text;
}

std::string heartRateJson(const Samples& samples, const platform::TimeZone& zone) {
  platform::Array list;
  for (const QuantitySample& sample : samples) {
    list.emplace_back(Dictionary{{"time", internetTime(sample.startDate, zone)},
                                 {"unix", unixSeconds(sample.startDate)},
                                 {"heartRate", numberOf(sample)}});
  }
  return jsonText(list, JsonLayout::indented) + "\n";
}

std::string heartRateDataPoints(const Samples& samples, const platform::TimeZone& zone) {
  platform::Array list;
  for (const QuantitySample& sample : samples) {
    list.emplace_back(dataPointOf(sample, zone));
  }
  return jsonText(list, JsonLayout::indented) + "\n";
}

}  // namespace wrixel2::ctl
