#include "bench/SmallBenches.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include "daemon/ForwardingRules.h"
#include "daemon/NextStepCheck.h"
#include "platform/AES.h"
#include "platform/UUID.h"
#include "platform/linux/FileDescriptor.h"
#include "platform/linux/HealthDatabase.h"
#include "platform/linux/StderrLog.h"
#include "platform/simulated/RecordingLog.h"
#include "protocol/MBModel/MBBatteryInfoModel.h"
#include "protocol/MBModel/MBDataBuilder.h"
#include "protocol/MBModel/MBDataReader.h"
#include "tests/platform/linux/TemporaryDirectory.h"

namespace wrixel2::bench {
namespace {

using benchmark::DoNotOptimize;
using benchmark::State;
using platform::Bytes;
using platform::bytesOfText;

const platform::Date kDate = std::chrono::sys_days(std::chrono::year(2026) / 3 / 1);

std::string appNumber(std::int64_t number) { return fmt::format("org.example.App{}", number); }

/// So many apps with settings of their own, all of which have notified, and some of their names.
class Apps {
 public:
  explicit Apps(std::int64_t count) {
    platform::Dictionary entries{{"donotannoy", true}};
    for (std::int64_t number = 0; number < count; ++number) {
      const std::string app = appNumber(number);
      entries.emplace("MBIcon-" + app, 9);
      entries.emplace("MBRepeat-" + app, 0);
      entries.emplace("MBPattern-" + app, 4);
      entries.emplace("MBPreview-" + app, true);
      history.emplace(app, daemon::MsgInfo(std::nullopt, kDate, {}));
    }
    settings = daemon::Settings::fromDictionary(std::move(entries), logger);
    // Spread over all of them, so that the maps' own depth and misses show.
    for (std::int64_t sample = 0; sample < kSamples; ++sample) {
      const std::string app = appNumber(sample * 7919 % count);
      bulletins.push_back({app, "Anna Example", "See you at six", "anna@example.org"});
    }
  }

  static constexpr std::int64_t kSamples = 1024;

  platform::simulated::RecordingLog log;
  platform::Logger logger{log, "main"};
  daemon::Settings settings;
  daemon::ForwardingHistory history;
  std::vector<daemon::Bulletin> bulletins;
};

void decide(State& state) {
  const Apps apps(state.range(0));
  const daemon::ForwardingCircumstances circumstances{
      .now = platform::MonotonicTime(std::chrono::hours(1))};
  std::size_t next = 0;
  for (auto _ : state) {
    DoNotOptimize(daemon::decideForwarding(apps.bulletins[next++ % Apps::kSamples], apps.settings,
                                           circumstances, apps.history, apps.logger));
  }
}

/// What a decision cannot do without: the app's entry in the history and four in the settings.
void lookUp(State& state) {
  const Apps apps(state.range(0));
  std::size_t next = 0;
  for (auto _ : state) {
    const std::string& app = apps.bulletins[next++ % Apps::kSamples].sectionID;
    DoNotOptimize(apps.history.find(app));
    for (const char* prefix : {"MBPreview-", "MBRepeat-", "MBIcon-", "MBPattern-"}) {
      DoNotOptimize(apps.settings.snapshot.find(std::string(prefix).append(app)));
    }
  }
}

void encodeText(State& state) {
  const Bytes text = bytesOfText("Anna:See you at six");
  for (auto _ : state) {
    mbmodel::MBDataBuilder builder;
    builder.writeInt(0x0105, 2).writeDisplayText(text, text.size());
    DoNotOptimize(builder.data());
  }
}

void decodeBattery(State& state) {
  const platform::FixedTimeZone zone(3600);
  const Bytes payload = {0x0F, 80,   0,    0xEA, 0x07, 3, 1, 7, 4, 5,
                         4,    0xEA, 0x07, 2,    1,    7, 4, 5, 4, 99};
  for (auto _ : state) {
    DoNotOptimize(mbmodel::MBBatteryInfoModel(payload, zone));
  }
}

void readIdentifier(State& state) {
  for (auto _ : state) {
    DoNotOptimize(platform::UUID::fromText("00000009-0000-3512-2118-0009af100700"));
  }
}

void writeIdentifier(State& state) {
  const auto identifier = platform::UUID::withString("00000009-0000-3512-2118-0009af100700");
  for (auto _ : state) {
    DoNotOptimize(identifier.longText());
  }
}

void answerChallenge(State& state) {
  platform::simulated::RecordingLog log;
  const Bytes challenge(16, 0x5A);
  for (auto _ : state) {
    DoNotOptimize(platform::AES128EncryptedDataWithKey(
        challenge, platform::md5("0123456789abcdef0123456789abcdef"), log));
  }
}

void nextFiring(State& state) {
  const platform::FixedTimeZone zone(3600);
  daemon::MoveSettings settings;
  settings.remindPeriod = 1;
  platform::Date now = kDate;
  for (auto _ : state) {
    DoNotOptimize(daemon::nextStepCheck(now, zone, settings, true));
    now += std::chrono::minutes(17);
  }
}

constexpr std::string_view kMessage =
    "#Forwaring: org.example.Chat, with what an app may be called";

void logLine(State& state) {
  const platform::linux::FileDescriptor nowhere(::open("/dev/null", O_WRONLY | O_CLOEXEC));
  platform::linux::StderrLog log("wrixel2d", false, nowhere.get());
  const platform::Logger logger(log, "main");
  for (auto _ : state) {
    logger.info(kMessage);
  }
}

void bareWrite(State& state) {
  const platform::linux::FileDescriptor nowhere(::open("/dev/null", O_WRONLY | O_CLOEXEC));
  const std::string line =
      platform::formatLogLine("wrixel2d", "main", 100, platform::LogLevel::info, kMessage) + '\n';
  for (auto _ : state) {
    DoNotOptimize(::write(nowhere.get(), line.data(), line.size()));
  }
}

void storeSample(State& state) {
  const platform::linux::TemporaryDirectory directory;
  platform::linux::HealthDatabase store(directory.path("health.sqlite"), "bench");
  const platform::QuantitySample sample{std::string(platform::kHeartRateType),
                                        std::string(platform::kCountPerMinute), 72, kDate, kDate};
  for (auto _ : state) {
    if (const auto error = store.save(sample)) {
      state.SkipWithError(error->localizedDescription.c_str());
    }
  }
}

/// Google Benchmark 1.8 has put another member in this one's place.
template <typename Run>
bool hasFailed(const Run& run) {
  if constexpr (requires { run.error_occurred; }) {
    return run.error_occurred;
  } else {
    return static_cast<bool>(run.skipped);
  }
}

/// Keeps the repetitions of each benchmark, in nanoseconds of processor or of real time.
class Collector final : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context& /*context*/) override { return true; }
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.run_type == Run::RT_Iteration && !hasFailed(run)) {
        times_[run.run_name.function_name + (run.run_name.args.empty() ? "" : "/") +
               run.run_name.args]
            .push_back(run.GetAdjustedRealTime());
      }
    }
  }

  /// The least of the repetitions, which disturbances only lengthen.
  double nanoseconds(const std::string& name) const {
    const auto found = times_.find(name);
    return found == times_.end() ? 0 : *std::ranges::min_element(found->second);
  }

 private:
  std::map<std::string, std::vector<double>> times_;
};

void registerAll() {
  for (const std::int64_t apps : {10, 1'000, 100'000}) {
    benchmark::RegisterBenchmark("decide", decide)->Arg(apps);
    benchmark::RegisterBenchmark("lookUp", lookUp)->Arg(apps);
  }
  benchmark::RegisterBenchmark("encodeText", encodeText);
  benchmark::RegisterBenchmark("decodeBattery", decodeBattery);
  benchmark::RegisterBenchmark("readIdentifier", readIdentifier);
  benchmark::RegisterBenchmark("writeIdentifier", writeIdentifier);
  benchmark::RegisterBenchmark("answerChallenge", answerChallenge);
  benchmark::RegisterBenchmark("nextFiring", nextFiring);
  benchmark::RegisterBenchmark("logLine", logLine);
  benchmark::RegisterBenchmark("bareWrite", bareWrite);
  benchmark::RegisterBenchmark("storeSample", storeSample);
}

void run(const Extent& extent, Collector& collector) {
  std::vector<std::string> arguments = {
      "wrixel2_bench", fmt::format("--benchmark_min_time={}", extent.smallSeconds),
      fmt::format("--benchmark_repetitions={}", extent.repetitions),
      "--benchmark_enable_random_interleaving=true"};
  std::vector<char*> pointers;
  for (std::string& argument : arguments) {
    pointers.push_back(argument.data());
  }
  int count = static_cast<int>(pointers.size());
  registerAll();
  benchmark::Initialize(&count, pointers.data());
  benchmark::RunSpecifiedBenchmarks(&collector);
}

}  // namespace

void measureSmallThings(const Extent& extent, Report& report) {
  Collector times;
  run(extent, times);

  const std::string decision = "forwarding decision";
  for (const char* apps : {"10", "1000", "100000"}) {
    report.add({decision, fmt::format("{} apps, beside the look-ups alone", apps), "ns",
                times.nanoseconds(fmt::format("decide/{}", apps)),
                times.nanoseconds(fmt::format("lookUp/{}", apps)), std::nullopt});
  }
  const auto growth = [&times](const std::string& name) {
    return times.nanoseconds(name + "/100000") - times.nanoseconds(name + "/10");
  };
  report.add({decision, "growth from 10 to 100000 apps", "ns", growth("decide"), growth("lookUp"),
              Goal{Goal::Kind::atMostRatio, 1.5}});

  const std::string small = "single operations";
  const auto add = [&](const char* what, const char* name) {
    report.add({small, what, "ns", times.nanoseconds(name), std::nullopt, std::nullopt});
  };
  add("a text alert's payload", "encodeText");
  add("a battery payload read", "decodeBattery");
  add("an identifier from its text", "readIdentifier");
  add("an identifier as text", "writeIdentifier");
  add("the answer to the band's challenge", "answerChallenge");
  add("the next firing of the move reminder", "nextFiring");
  report.add({small, "a log line, beside the bare write", "ns", times.nanoseconds("logLine"),
              times.nanoseconds("bareWrite"), std::nullopt});
  report.add({small, "a log line's formatting", "ns",
              times.nanoseconds("logLine") - times.nanoseconds("bareWrite"), std::nullopt,
              Goal{Goal::Kind::atMost, 1000}});
  const double sample = times.nanoseconds("storeSample");
  report.add({"health store", "samples acknowledged and durable", "1/s",
              sample > 0 ? 1e9 / sample : 0, std::nullopt, std::nullopt});
}

}  // namespace wrixel2::bench
