#include "Executables/KelmorInfo/PlanReport.hpp"

#include <algorithm>
#include <span>
#include <sstream>

#include "Executables/KelmorInfo/JsonParts.hpp"
#include "Executables/KelmorInfo/Text.hpp"
#include "Executables/Series/Agreement.hpp"

namespace {

// Lists what is wiped of a file: "8 steps at t = 7 ... 7.875", one range after the other.
std::string Wiped(const PlannedFile& file, bool verbose) {
  constexpr std::size_t mostRanges = 4;
  std::string text;
  std::size_t ranges = 0;
  for (const PlanPiece& piece : file.mPieces) {
    if (!piece.mIsKept && (++ranges <= mostRanges || verbose)) {
      text += (text.empty() ? "" : ", ") + Counted(piece.mSteps, "step") + " at " +
              TimeSpan(piece.mFirst, piece.mLast);
    }
  }
  if (ranges > mostRanges && !verbose) {
    text += ", and " + Counted(ranges - mostRanges, "more range");
  }
  return text.empty() ? "nothing" : text;
}

void PrintSteps(std::ostream& os, const Plan& plan, const PlannedSteps& steps, bool verbose) {
  os << "    keeping " << steps.mKept << " of " << Counted(steps.mTotal, "step");
  if (!plan.mNoWipe) {
    os << ", maximum time-gap is " << RoundTrip(steps.mMaximumGap);
  }
  os << '\n';
  AlignedLines lines({1});
  for (const PlannedFile& file : steps.mFiles) {
    lines.Add(
        {Vexa::Printable(plan.NameOf(file)), file.CountText(), "wiping " + Wiped(file, verbose)});
  }
  lines.Print(os, "      ");
  for (const PlanGap& gap : steps.mGaps) {
    os << "      gap between t = " << RoundTrip(gap.mFrom) << " and " << RoundTrip(gap.mTo) << '\n';
  }
}

// Tells what some files have where others have something else.
void PrintValues(std::ostream& os, std::span<const PlannedValue> values, bool verbose) {
  for (const PlannedValue& value : values) {
    const std::size_t most = verbose ? value.mFiles.size() : 6;
    const std::string files = (value.mFiles.empty() ? "" : " in ") + ListNames(value.mFiles, most);
    os << "      " << Vexa::Printable(value.mValue + files) << '\n';
  }
}

void PrintWarnings(std::ostream& os, const Plan& plan, bool verbose) {
  os << (plan.mWarnings.empty() ? "" : "Warnings:\n");
  for (const PlanWarning& warning : plan.mWarnings) {
    const std::vector<PlannedValue>& values = warning.mValues;
    const std::size_t most = verbose ? values.size() : std::min<std::size_t>(values.size(), 12);
    os << "  " << warning.mKind << ": "
       << Vexa::Printable(warning.About(verbose ? warning.mDatasets.size() : 3)) << ":\n    "
       << warning.mText << (warning.mDatasets.size() > 1 ? " (values of the first):\n" : ":\n");
    PrintValues(os, std::span(values).first(most), verbose);
    if (most < values.size()) {
      os << "      and " << values.size() - most << " more\n";
    }
  }
  os << (plan.mWarnings.empty() ? "" : "\n");
}

void PrintDisagreements(std::ostream& os, const Plan& plan, bool verbose) {
  for (const Disagreement& disagreement : plan.mDisagreements) {
    os << "  " << Vexa::Printable(disagreement.About(disagreement.mFile)) << ":\n    "
       << disagreement.mReason << '\n';
    PrintValues(os, disagreement.mValues, verbose);
  }
}

Json ValueAsJson(const PlannedValue& value) {
  return {{"value", value.mValue}, {"files", NamesAsJson(value.mFiles)}};
}

Json WarningAsJson(const PlanWarning& warning) {
  return {{"kind", warning.mKind},
          {"reason", warning.mText},
          {"datasets", NamesAsJson(warning.mDatasets)},
          {"files", NamesAsJson(warning.mFiles)},
          {"values", ArrayOf(warning.mValues, ValueAsJson)}};
}

Json DisagreementAsJson(const Disagreement& disagreement) {
  const auto oneOrNone = [](const std::string& name) {
    return NamesAsJson(std::vector<std::string>(name.empty() ? 0 : 1, name));
  };
  return {{"reason", disagreement.mReason},
          {"datasets", oneOrNone(disagreement.mDataset)},
          {"files", oneOrNone(disagreement.mFile)},
          {"values", ArrayOf(disagreement.mValues, ValueAsJson)}};
}

Json PieceAsJson(const PlanPiece& piece) {
  return {{"is_wiped", !piece.mIsKept},
          {"steps", piece.mSteps},
          {"times", SpanAsJson(piece.mFirst, piece.mLast)}};
}

Json DatasetAsJson(const Plan& plan, const PlannedDataset& dataset) {
  const PlannedSteps& steps = plan.StepsOf(dataset);
  const auto ofSteps = [&steps](const auto& value) {
    return steps.mHasTimes ? Json(value) : Json();
  };
  const auto toJson = [&](const PlannedFile& file) {
    return Json{{"name", plan.NameOf(file)},
                {"steps", ofSteps(file.mTotal)},
                {"kept", ofSteps(file.mKept)},
                {"pieces", ArrayOf(file.mPieces, PieceAsJson)}};
  };
  const auto gapAsJson = [](const PlanGap& gap) { return SpanAsJson(gap.mFrom, gap.mTo); };
  return {{"name", dataset.mName},
          {"kind", dataset.mKind},
          {"bytes", dataset.mBytes},
          {"agrees", dataset.mAgrees},
          {"steps", ofSteps(steps.mTotal)},
          {"kept", ofSteps(steps.mKept)},
          // Nobody looks for it where nothing is wiped.
          {"maximum_gap", plan.mNoWipe ? Json() : ofSteps(NumberAsJson(steps.mMaximumGap))},
          {"gaps", ArrayOf(steps.mGaps, gapAsJson)},
          {"files", ArrayOf(steps.mFiles, toJson)}};
}

}  // namespace

bool PrintPlanHead(std::ostream& os, const Plan& plan, bool verbose) {
  PrintWarnings(os, plan, verbose);
  if (!plan.Joins()) {
    os << "Kelmor would refuse these files:\n";
    PrintDisagreements(os, plan, verbose);
    os << '\n';
  } else if (plan.mDatasets.empty()) {
    os << "Kelmor would find no datasets and write no output.\n";
    return false;
  } else {
    os << "Kelmor would join " << Counted(plan.mFiles.size(), "file") << " into "
       << Counted(plan.mDatasets.size(), "dataset") << ", " << Size(plan.mBytes)
       << " uncompressed.\n\n";
  }
  return true;
}

void PrintPlan(std::ostream& os, const Plan& plan, bool verbose) {
  if (!PrintPlanHead(os, plan, verbose)) {
    return;
  }
  // What shares its steps stands together.
  AlignedLines lines({2});
  for (std::size_t number = 0; number < plan.mSteps.size(); ++number) {
    const PlannedSteps& steps = plan.mSteps[number];
    for (const PlannedDataset& dataset : plan.mDatasets) {
      if (dataset.mSteps == number) {
        lines.Add({dataset.mKind, Vexa::Printable(dataset.mName), Size(dataset.mBytes),
                   "from " + Counted(steps.mFiles.size(), "file"),
                   dataset.mAgrees ? "" : "DISAGREES"});
      }
    }
    if (steps.mHasTimes) {
      std::ostringstream text;
      PrintSteps(text, plan, steps, verbose);
      lines.AddText(text.str());
    }
  }
  lines.Print(os, "  ");
}

void PrintPlanAsJson(std::ostream& os, const Plan& plan) {
  Json json = NewDocument();
  json["joins"] = plan.Joins();
  json["warnings"] = ArrayOf(plan.mWarnings, WarningAsJson);
  json["disagreements"] = ArrayOf(plan.mDisagreements, DisagreementAsJson);
  json["bytes"] = plan.mBytes;
  json["DeltaT"] = NumberAsJson(plan.mDeltaT);
  json["NoWipe"] = plan.mNoWipe;
  json["files"] = ArrayOf(plan.mFiles, FileAsJson);
  json["external_files"] = NamesAsJson(plan.mExternalFiles);
  json["datasets"] = ArrayOf(plan.mDatasets, [&plan](const PlannedDataset& dataset) {
    return DatasetAsJson(plan, dataset);
  });
  PrintJson(os, json);
}
