#include "Executables/KelmorInfo/PlanPicture.hpp"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <ranges>
#include <set>

#include "Executables/KelmorInfo/Svg.hpp"
#include "Executables/KelmorInfo/Text.hpp"
#include "Executables/KelmorInfo/TimeScale.hpp"
#include "Executables/Series/Agreement.hpp"
#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/StringParsing/PathUtilities.hpp"

namespace {

constexpr double sWidth = 960;
constexpr double sMargin = 24;
constexpr double sCountsWidth = 72;  // right of the bars
constexpr std::size_t sMostPanels = 60;
constexpr std::size_t sMostDisagreements = 8;
constexpr std::size_t sMostWarnings = 8;

constexpr char sInk[] = "fill=\"#222\"";
constexpr char sGrey[] = "fill=\"#767676\"";
constexpr char sAmber[] = "fill=\"#8a5a00\"";
constexpr char sRed[] = "fill=\"#b3261e\"";
constexpr char sKept[] = "fill=\"#2f6690\"";
constexpr char sJoined[] = "fill=\"#1b2f40\"";
constexpr char sWiped[] = "fill=\"url(#wiped)\" stroke=\"#c8553d\" stroke-width=\"0.7\"";
constexpr char sGap[] = "fill=\"#f6d57a\" fill-opacity=\"0.45\"";
constexpr char sGrid[] = "stroke=\"#e4e4e4\" stroke-width=\"1\"";
constexpr char sRow[] = "stroke=\"#efefef\" stroke-width=\"0.8\"";
constexpr char sAxis[] = "stroke=\"#444\" stroke-width=\"1\"";
constexpr char sHatching[] =
    "<pattern id=\"wiped\" width=\"4\" height=\"4\" patternUnits=\"userSpaceOnUse\" "
    "patternTransform=\"rotate(45)\"><rect width=\"4\" height=\"4\" fill=\"#fbe9e4\"/>"
    "<line x1=\"0\" y1=\"0\" x2=\"0\" y2=\"4\" stroke=\"#c8553d\" stroke-width=\"2\"/>"
    "</pattern>";

std::string Anchored(const char* style, const char* anchor) {
  return std::string(style) + " text-anchor=\"" + anchor + "\"";
}

struct Bar {
  double mFrom;
  double mTo;
};

// Bars that would touch are one: a long series of single steps is drawn as what one sees of it.
std::vector<Bar> Merged(const std::vector<Bar>& given) {
  constexpr double thinnest = 1.2;
  constexpr double touching = 0.6;
  std::vector<Bar> bars;
  for (auto [from, to] : given) {
    if (to - from < thinnest) {
      const double middle = (from + to) / 2;
      from = middle - thinnest / 2;
      to = middle + thinnest / 2;
    }
    if (!bars.empty() && from >= bars.back().mFrom && from - bars.back().mTo < touching) {
      bars.back().mTo = std::max(bars.back().mTo, to);
    } else {
      bars.push_back({from, to});
    }
  }
  return bars;
}

class Picture {
 public:
  explicit Picture(const Plan& plan)
      : mPlan(plan),
        mLabels(FileLabels(plan)),
        mLeft(sMargin + LabelWidth() + 10),
        mRight(sWidth - sMargin - sCountsWidth),
        mScale(plan, mLeft, mRight) {}

  std::string Draw() {
    DrawHeader();
    DrawWarnings();
    std::size_t panels = 0;
    for (const PlannedSteps& steps : mPlan.mSteps) {
      if (steps.mHasTimes && ++panels <= sMostPanels) {
        DrawPanel(steps);
      }
    }
    if (panels > 0) {
      DrawAxis();
    }
    if (panels > sMostPanels) {
      DrawNote("and " + Counted(panels - sMostPanels, "more panel") + " like these", sGrey);
    }
    DrawWhatHasNoTimes();
    DrawDisagreements();
    return mSvg.Document(sWidth, mY + sMargin, sHatching);
  }

 private:
  // Files are called by their names without folders where that is distinct.
  static std::vector<std::string> FileLabels(const Plan& plan) {
    std::vector<std::string> paths;
    std::vector<std::string> names;
    for (const InputFile& file : plan.mFiles) {
      paths.push_back(file.mName);
      names.push_back(GetFilenameFromPath(file.mName));
    }
    return std::set(names.begin(), names.end()).size() == names.size() ? names : paths;
  }

  double LabelWidth() const {
    double width = Svg::TextWidth("joined", sLabelSize);
    for (const std::string& label : mLabels) {
      width = std::max(width, Svg::TextWidth(label, sLabelSize));
    }
    return std::min(width, sWidth / 4);
  }

  void DrawHeader() {
    mY = sMargin + 12;
    mSvg.Rect(0, 0, sWidth, 1e5, "fill=\"#fff\"");
    mSvg.Text(sMargin, mY, 16,
              "Plan of a join of " + Counted(mPlan.mFiles.size(), "file") +
                  (mPlan.Joins() ? "" : " that would fail"),
              std::string(mPlan.Joins() ? sInk : sRed) + " font-weight=\"bold\"");
    mSvg.Text(sMargin, mY + 18, 11,
              Counted(mPlan.mDatasets.size(), "dataset") + ", " + Size(mPlan.mBytes) +
                  " uncompressed; " +
                  (mPlan.mNoWipe ? "no step is wiped" : "DeltaT = " + RoundTrip(mPlan.mDeltaT)),
              sGrey);
    DrawLegend();
    mY += 34;
  }

  void DrawLegend() {
    double x = mRight + sCountsWidth - 218;
    const double y = mY - 9;
    for (const auto& [style, text] : {std::pair(sKept, "kept"), {sWiped, "wiped"}, {sGap, "gap"}}) {
      mSvg.Rect(x, y, 26, 10, style);
      x = mSvg.Text(x + 32, y + 9, 11, text, sInk) + 18;
    }
  }

  // Names of the datasets of a panel, bold the first, and how many steps are kept.
  void DrawHeading(const PlannedSteps& steps) {
    std::vector<std::string> names;
    bool agree = true;
    for (const PlannedDataset& dataset : mPlan.mDatasets) {
      if (&mPlan.StepsOf(dataset) == &steps) {
        names.push_back(dataset.mName);
        agree = agree && dataset.mAgrees;
      }
    }
    const std::string all = Joined(names, "\n");
    const double size = 12;
    const double room = sWidth - 2 * sMargin - 180;
    const std::string first = Svg::Fitted(names.front(), size, room * 0.6);
    mSvg.Text(sMargin, mY, size, first, std::string(agree ? sInk : sRed) + " font-weight=\"bold\"",
              all);
    // Bold letters are wider.
    const double x = sMargin + Svg::TextWidth(first, size) * 1.1 + 10;
    std::string others;
    for (std::size_t i = 1; i < names.size(); ++i) {
      const std::string longer = others + (others.empty() ? "" : ", ") + names[i];
      if (x + Svg::TextWidth(longer, 11) + 90 > sMargin + room) {
        others += (others.empty() ? "and " : " and ") + Counted(names.size() - i, "other");
        break;
      }
      others = longer;
    }
    if (!agree) {
      others += others.empty() ? "disagrees" : "; not all agree";
    }
    mSvg.Text(x, mY, 11, others, agree ? sGrey : sRed, all);
    mSvg.Text(sWidth - sMargin, mY, 11,
              std::to_string(steps.mKept) + " of " + Counted(steps.mTotal, "step") + " kept",
              Anchored(sInk, "end"));
  }

  // Rows become lower the more there are.
  static double RowHeight(std::size_t files) {
    return files <= 6    ? 20
           : files <= 16 ? 15
           : files <= 60 ? 11
                         : std::max(3.0, 660.0 / static_cast<double>(files));
  }

  void DrawPanel(const PlannedSteps& steps) {
    mY += 20;
    DrawHeading(steps);
    mY += 12;
    const double row = RowHeight(steps.mFiles.size());
    const double bottom = mY + row * static_cast<double>(steps.mFiles.size()) + 20;
    for (const TimeScale::Tick& tick : mScale.Ticks()) {
      mSvg.Line(tick.mX, mY, tick.mX, bottom, sGrid);
    }
    for (const PlanGap& gap : steps.mGaps) {
      const double from = mScale.At(gap.mFrom);
      mSvg.Rect(from, mY, std::max(mScale.At(gap.mTo), from + 1) - from, bottom - mY, sGap,
                "gap between " + RoundTrip(gap.mFrom) + " and " + RoundTrip(gap.mTo));
    }
    double labelled = -1e9;
    for (const PlannedFile& file : steps.mFiles) {
      const double size = std::min(sLabelSize, std::max(8.0, row * 0.78));
      const double base = mY + row / 2 + size * 0.36;
      // As many labels as have room.
      if (base - labelled >= size) {
        DrawLabels(mLabels[static_cast<std::size_t>(file.mFile)], file.CountText(), base, size);
        labelled = base;
      }
      mSvg.Line(mLeft, mY + row / 2, mRight, mY + row / 2, sRow);
      DrawFile(file, mY + row * 0.17, row * 0.66);
      mY += row;
    }
    mSvg.Line(mLeft, mY + 1.5, mRight, mY + 1.5, "stroke=\"#bbb\" stroke-width=\"0.7\"");
    mY += 3;
    DrawLabels("joined", std::to_string(steps.mKept), mY + 12.5, sLabelSize);
    DrawJoined(steps, mY + 4.5, 8);
    for (const PlanGap& gap : steps.mGaps) {
      const double from = mScale.At(gap.mFrom);
      const double to = mScale.At(gap.mTo);
      const std::string label = "gap " + ToText(gap.mTo - gap.mFrom, std::chars_format::general, 4);
      if (Svg::TextWidth(label, 9) + 2 < to - from) {
        mSvg.Text((from + to) / 2, mY + 12, 9, label, Anchored("fill=\"#7a5c00\"", "middle"));
      }
    }
    mY = bottom;
  }

  void DrawLabels(const std::string& left, const std::string& right, double base, double size) {
    mSvg.Text(mLeft - 10, base, size, Svg::Fitted(left, size, mLeft - 10 - sMargin),
              Anchored(sInk, "end"), left);
    mSvg.Text(sWidth - sMargin, base, size, right, Anchored(sGrey, "end"));
  }

  static bool HasPlace(const PlanPiece& piece) {
    return !std::isnan(piece.mFirst) && !std::isnan(piece.mLast);
  }

  void DrawFile(const PlannedFile& file, double y, double height) {
    std::vector<Bar> bars;
    for (std::size_t i = 0; i < file.mPieces.size(); ++i) {
      const PlanPiece& piece = file.mPieces[i];
      bars.push_back({mScale.At(piece.mFirst), mScale.At(piece.mLast)});
      // Between kept and wiped steps the bars meet half-way: what is white is a gap.
      if (i > 0 && piece.mIsKept != file.mPieces[i - 1].mIsKept && HasPlace(piece) &&
          HasPlace(file.mPieces[i - 1])) {
        bars[i].mFrom = bars[i - 1].mTo = (bars[i].mFrom + bars[i - 1].mTo) / 2;
      }
    }
    std::vector<Bar> kept;
    std::vector<Bar> wiped;
    for (std::size_t i = 0; i < bars.size(); ++i) {
      const auto [from, to] = std::minmax({bars[i].mFrom, bars[i].mTo});
      if (HasPlace(file.mPieces[i])) {
        (file.mPieces[i].mIsKept ? kept : wiped).push_back({from, to});
      }
    }
    const std::string tooltip = mPlan.NameOf(file) + ": " + file.CountText();
    DrawBars(wiped, y, height, sWiped, tooltip);
    DrawBars(kept, y, height, sKept, tooltip);
  }

  void DrawBars(const std::vector<Bar>& bars, double y, double height, const char* style,
                const std::string& tooltip = "") {
    for (const Bar& bar : Merged(bars)) {
      mSvg.Rect(bar.mFrom, y, bar.mTo - bar.mFrom, height, style, tooltip);
    }
  }

  void DrawJoined(const PlannedSteps& steps, double y, double height) {
    // One bar reaches from one gap to the next, however many files it comes from.
    std::vector<Bar> wholes;
    std::size_t gap = 0;
    for (const PlannedFile& file : steps.mFiles) {
      for (const PlanPiece& piece : file.mPieces) {
        if (!piece.mIsKept || !HasPlace(piece)) {
          continue;
        }
        const auto [from, to] = std::minmax({mScale.At(piece.mFirst), mScale.At(piece.mLast)});
        bool isNew = wholes.empty();
        for (; gap < steps.mGaps.size() && piece.mFirst >= steps.mGaps[gap].mTo; ++gap) {
          isNew = true;
        }
        if (isNew) {
          wholes.push_back({from, to});
        } else {
          wholes.back() = {std::min(wholes.back().mFrom, from), std::max(wholes.back().mTo, to)};
        }
      }
    }
    DrawBars(wholes, y, height, sJoined);
  }

  void DrawAxis() {
    mY += 4;
    mSvg.Line(mLeft, mY, mRight, mY, sAxis);
    double labelled = 0;
    for (const TimeScale::Tick& tick : mScale.Ticks()) {
      mSvg.Line(tick.mX, mY, tick.mX, mY + 5, sAxis);
      const double half = Svg::TextWidth(tick.mLabel, 11) / 2;
      if (tick.mX - half > labelled) {
        mSvg.Text(tick.mX, mY + 18, 11, tick.mLabel, Anchored(sInk, "middle"));
        labelled = tick.mX + half + 6;
      }
    }
    mSvg.Text((mLeft + mRight) / 2, mY + 36, 12, "time", Anchored(sInk, "middle"));
    mY += 44;
  }

  void DrawNote(const std::string& text, const char* style) {
    mY += 16;
    mSvg.Text(sMargin, mY, 11, Svg::Fitted(text, 11, sWidth - 2 * sMargin), style, text);
  }

  void DrawWhatHasNoTimes() {
    std::string names;
    std::size_t left = 0;
    for (const PlannedDataset& dataset : mPlan.mDatasets) {
      if (mPlan.StepsOf(dataset).mHasTimes) {
        continue;
      }
      if (Svg::TextWidth(names + dataset.mName, 11) > sWidth - 2 * sMargin - 260) {
        ++left;
      } else {
        names += (names.empty() ? "" : ", ") + dataset.mName;
      }
    }
    if (!names.empty() || left > 0) {
      DrawNote("joined whole, without times: " + names +
                   (left > 0 ? " and " + Counted(left, "other") : ""),
               sGrey);
    }
  }

  void DrawWarnings() {
    const std::vector<PlanWarning>& all = mPlan.mWarnings;
    for (const PlanWarning& one : all | std::views::take(sMostWarnings)) {
      const PlannedValue& value = one.mValues.front();
      DrawNote(one.mKind + ": " + one.About(1) + ": " + value.mValue +
                   (value.mFiles.empty() ? "" : " in ") + ListNames(value.mFiles, 2),
               sAmber);
    }
    if (all.size() > sMostWarnings) {
      DrawNote("and " + Counted(all.size() - sMostWarnings, "more warning"), sAmber);
    }
    mY += all.empty() ? 0 : 6;
  }

  void DrawDisagreements() {
    const std::vector<Disagreement>& all = mPlan.mDisagreements;
    mY += all.empty() ? 0 : 6;
    for (const Disagreement& one : all | std::views::take(sMostDisagreements)) {
      DrawNote(one.About(GetFilenameFromPath(one.mFile)) + ": " + one.mReason, sRed);
      for (const PlannedValue& value : one.mValues | std::views::take(3)) {
        DrawNote(value.mValue + " in " + ListNames(value.mFiles, 2), sRed);
      }
    }
    if (all.size() > sMostDisagreements) {
      DrawNote("and " + Counted(all.size() - sMostDisagreements, "more disagreement"), sRed);
    }
  }

  static constexpr double sLabelSize = 11;

  const Plan& mPlan;
  std::vector<std::string> mLabels;
  double mLeft;  // of the bars
  double mRight;
  TimeScale mScale;
  Svg mSvg;
  double mY = 0;  // how far down the picture is drawn
};

}  // namespace

std::string DrawPlan(const Plan& plan) {
  return Picture(plan).Draw();
}

void WritePicture(const std::string& path, const std::string& picture) {
  std::FILE* file = std::fopen(path.c_str(), "wx");
  REQUIRE(file!=nullptr, "Cannot create picture " << path << ": " << StrError(errno));
  const bool isWritten = std::fwrite(picture.data(), 1, picture.size(), file) == picture.size();
  const bool isClosed = std::fclose(file) == 0;
  const int error = errno;
  if (!isWritten || !isClosed) {
    std::remove(path.c_str());
  }
  REQUIRE(isWritten && isClosed, "Writing picture " << path << " failed: " << StrError(error));
}
