#include "ctl/DoctorCommand.h"

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "ctl/Diagnosis.h"
#include "ctl/Json.h"
#include "ctl/KeyStore.h"
#include "ctl/StatusReport.h"
#include "ctl/TextRows.h"
#include "platform/linux/SqliteHealthReader.h"
#include "settings/SettingsEditor.h"

namespace wrixel2::ctl {

namespace {

std::string_view wordOf(Verdict verdict) {
  switch (verdict) {
    case Verdict::ok:
      return "ok";
    case Verdict::warning:
      return "warning";
    case Verdict::problem:
      return "problem";
  }
  return "";
}

void examineSession(const Context& context, Examination& examination) {
  const auto session = context.openSession();
  if (!session) {
    examination.sessionBusProblem = session.error().localizedDescription;
    return;
  }
  auto report = StatusReport::of(**session);
  if (!report) {
    examination.sessionBusProblem = report.error().localizedDescription;
    return;
  }
  examination.daemon = std::move(report->daemon);
  examination.companion = std::move(report->companion);
}

void examineFiles(const Context& context, Examination& examination) {
  const auto key = KeyStore(context.files, context.propertyLists, context.paths.miFit).key();
  if (key) {
    examination.isKeyUsual = key->isUsual();
  } else {
    examination.keyProblem = key.error().localizedDescription;
  }
  examination.hasSettingsFile = context.files.fileExistsAtPath(context.paths.settings);
  const auto editor = settings::SettingsEditor::open(context.files, context.paths.settings);
  if (!editor) {
    examination.settingsProblem = editor.error().localizedDescription;
  } else if (!editor->warnings().empty()) {
    const auto& first = editor->warnings().front();
    examination.settingsWarning =
        fmt::format("{}:{}: {}", context.paths.settings, first.line, first.message);
  }
  const auto now = context.clock.now();
  const auto samples = platform::linux::SqliteHealthReader(context.paths.healthDatabase)
                           .samples(platform::kHeartRateType, now, now);
  if (!samples) {
    examination.healthStoreProblem = samples.error().localizedDescription;
  }
}

std::string textOf(const std::vector<Finding>& findings) {
  std::vector<std::vector<std::string>> rows;
  for (const Finding& finding : findings) {
    rows.push_back({std::string(wordOf(finding.verdict)), finding.subject, finding.finding});
    if (!finding.remedy.empty()) {
      rows.push_back({"", "", "-> " + finding.remedy});
    }
  }
  return alignedRows(rows);
}

platform::Array jsonOf(const std::vector<Finding>& findings) {
  platform::Array list;
  for (const Finding& finding : findings) {
    list.emplace_back(platform::Dictionary{{"verdict", wordOf(finding.verdict)},
                                           {"subject", finding.subject},
                                           {"finding", finding.finding},
                                           {"remedy", finding.remedy}});
  }
  return list;
}

}  // namespace

void DoctorCommand::declare(CLI::App& program, const Choose& choose) {
  program
      .add_subcommand("doctor",
                      "Look through everything that the service needs, and say what to do")
      ->callback([choose] { choose(run); });
}

ExitStatus DoctorCommand::run(const Context& context) {
  Examination examination;
  examination.host = context.findHostFacts();
  examineSession(context, examination);
  examineFiles(context, examination);
  const std::vector<Finding> findings = diagnose(examination);
  context.console.print(context.json ? jsonText(jsonOf(findings), JsonLayout::indented) + "\n"
                                     : textOf(findings));
  for (const Finding& finding : findings) {
    if (finding.verdict == Verdict::problem) {
      return ExitStatus::failed;
    }
  }
  return ExitStatus::done;
}

}  // namespace wrixel2::ctl
