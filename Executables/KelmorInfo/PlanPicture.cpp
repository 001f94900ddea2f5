#include "Executables/KelmorInfo/PlanPicture.hpp"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <ranges>
#include <span>

#include "Executables/KelmorInfo/PlanPanels.hpp"
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
constexpr std::size_t sMostStretches = 3;

constexpr char sInk[] = "fill=\"#222\"";
constexpr char sGrey[] = "fill=\"#767676\"";
constexpr char sAmber[] = "fill=\"#8a5a00\"";
constexpr char sRed[] = "fill=\"#b3261e\"";
constexpr char sKept[] = "fill=\"#2f6690\"";
constexpr char sJoined[] = "fill=\"#1b2f40\"";
constexpr char sWiped[] = "fill=\"url(#wiped)\" stroke=\"#c8553d\" stroke-width=\"0.7\"";
constexpr char sMisfit[] =
    "fill=\"#fff\" stroke=\"#b3261e\" stroke-width=\"1\" stroke-dasharray=\"3 2\"";
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

// Bars that would touch are one: a long series of single steps is drawn as what one sees of it.
std::vector<Bar> Merged(const std::vector<Bar>& given) {
  constexpr double thinnest = 1.2;
  constexpr double touching = 0.6;
  std::vector<Bar> bars;
  for (auto [isKept, from, to] : given) {
    if (to - from < thinnest) {
      const double middle = (from + to) / 2;
      from = middle - thinnest / 2;
      to = middle + thinnest / 2;
    }
    if (!bars.empty() && from >= bars.back().mFrom && from - bars.back().mTo < touching) {
      bars.back().mTo = std::max(bars.back().mTo, to);
    } else {
      bars.push_back({isKept, from, to});
    }
  }
  return bars;
}

class Picture {
 public:
  explicit Picture(const Plan& plan)
      : mPlan(plan),
        mLabels(FileLabels(plan, Svg::Room(sLabelSize, sWidth / 4))),
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
    if (panels > 0 && !mHasAxis) {
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
    std::vector<std::pair<const char*, const char*>> shown = {
        {sKept, "kept"}, {sWiped, "wiped"}, {sGap, "gap"}};
    double x = mRight + sCountsWidth - 218;
    if (std::ranges::any_of(mPlan.mSteps, [](const auto& s) { return !s.mMisfits.empty(); })) {
      shown.emplace_back(sMisfit, "disagrees");
      x -= 110;
    }
    const double y = mY - 9;
    for (const auto& [style, text] : shown) {
      mSvg.Rect(x, y, 26, 10, style);
      x = mSvg.Text(x + 32, y + 9, 11, text, sInk) + 18;
    }
  }

  // Names of the datasets of a panel, bold the first, and how many steps are kept.
  void DrawHeading(const PlannedSteps& steps) {
    const auto [names, agree, counts] = HeadingOf(mPlan, steps);
    const std::string all = Joined(names, "\n");
    const double size = 12;
    const double room = sWidth - 2 * sMargin - std::max(180.0, Svg::TextWidth(counts, 11) + 10);
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
    mSvg.Text(sWidth - sMargin, mY, 11, counts, Anchored(sInk, "end"));
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
    DrawRows(steps, RowsOf(steps), mScale);
    const std::vector<TimeRange> stretches = ShortStretchesOf(steps, mScale);
    mHasAxis = !stretches.empty();
    if (mHasAxis) {
      DrawAxis();  // which would be taken for that of the stretches below them
    }
    for (const TimeRange& stretch : stretches | std::views::take(sMostStretches)) {
      DrawStretch(steps, stretch);
    }
    if (stretches.size() > sMostStretches) {
      DrawNote(Counted(stretches.size() - sMostStretches, "more stretch of time") +
                   " is too short to be seen at this scale",
               sGrey);
    }
  }

  // Shows a stretch of time alone, with an axis of its own.
  void DrawStretch(const PlannedSteps& steps, const TimeRange& stretch) {
    const TimeScale scale(stretch, mLeft, mRight);
    std::vector<PanelRow> rows = RowsOf(steps);
    std::erase_if(rows, [&scale](const PanelRow& row) { return !row.IsOn(scale); });
    mY += 14;
    mSvg.Text(mLeft, mY, 10, "enlarged, since it is too short to be seen above:", sGrey);
    mY += 5;
    const double top = mY;
    DrawRows(steps, rows, scale);
    mSvg.Rect(mLeft, top, mRight - mLeft, mY - top, "fill=\"none\" stroke=\"#999\"");
    DrawTicks(scale, 9, sGrey);
    mY += 18;
  }

  void DrawRows(const PlannedSteps& steps, std::span<const PanelRow> rows, const TimeScale& scale) {
    const double row = RowHeight(rows.size());
    const double bottom = mY + row * static_cast<double>(rows.size()) + 20;
    for (const TimeScale::Tick& tick : scale.Ticks()) {
      mSvg.Line(tick.mX, mY, tick.mX, bottom, sGrid);
    }
    const std::vector<PlanGap> gaps = GapsOf(steps);
    for (const PlanGap& gap : gaps) {
      if (scale.Shows(gap.mFrom, gap.mTo)) {
        const double from = scale.At(gap.mFrom);
        mSvg.Rect(from, mY, std::max(scale.At(gap.mTo), from + 1) - from, bottom - mY, sGap,
                  "gap between " + RoundTrip(gap.mFrom) + " and " + RoundTrip(gap.mTo));
      }
    }
    double labelled = -1e9;
    for (const PanelRow& file : rows) {
      const double size = std::min(sLabelSize, std::max(8.0, row * 0.78));
      const double base = mY + row / 2 + size * 0.36;
      // As many labels as have room.
      if (base - labelled >= size) {
        DrawLabels(file, base, size);
        labelled = base;
      }
      mSvg.Line(mLeft, mY + row / 2, mRight, mY + row / 2, sRow);
      DrawFile(file, scale, mY + row * 0.17, row * 0.66);
      mY += row;
    }
    mSvg.Line(mLeft, mY + 1.5, mRight, mY + 1.5, "stroke=\"#bbb\" stroke-width=\"0.7\"");
    mY += 3;
    mSvg.Text(mLeft - 10, mY + 12.5, sLabelSize, "joined", Anchored(sInk, "end"));
    mSvg.Text(sWidth - sMargin, mY + 12.5, sLabelSize, std::to_string(steps.mKept),
              Anchored(sGrey, "end"));
    DrawBars(JoinedBarsOf(steps, scale), mY + 4.5, 8, sJoined, "");
    DrawGapLengths(gaps, scale);
    mY = bottom;
  }

  void DrawGapLengths(std::span<const PlanGap> gaps, const TimeScale& scale) {
    for (const PlanGap& gap : gaps) {
      const double from = scale.At(gap.mFrom);
      const double to = scale.At(gap.mTo);
      const std::string label = "gap " + ToText(gap.mTo - gap.mFrom, std::chars_format::general, 4);
      if (Svg::TextWidth(label, 9) + 2 < to - from) {
        mSvg.Text((from + to) / 2, mY + 12, 9, label, Anchored("fill=\"#7a5c00\"", "middle"));
      }
    }
  }

  void DrawLabels(const PanelRow& row, double base, double size) {
    const bool isMisfit = row.mpPlanned == nullptr;
    const auto number = static_cast<std::size_t>(row.mFile);
    mSvg.Text(mLeft - 10, base, size, Svg::Fitted(mLabels[number], size, mLeft - 10 - sMargin),
              Anchored(isMisfit ? sRed : sInk, "end"), mPlan.mFiles[number].mName);
    mSvg.Text(sWidth - sMargin, base, size, row.CountText(),
              Anchored(isMisfit ? sRed : sGrey, "end"));
  }

  void DrawFile(const PanelRow& row, const TimeScale& scale, double y, double height) {
    std::string tooltip =
        mPlan.mFiles[static_cast<std::size_t>(row.mFile)].mName + ": " + row.CountText();
    if (row.mpPlanned == nullptr) {
      if (row.IsOn(scale)) {
        const PlannedMisfit& misfit = *row.mpMisfit;
        DrawBars({{false, scale.At(misfit.mFirst), scale.At(misfit.mLast)}}, y, height, sMisfit,
                 tooltip);
      }
      return;
    }
    if (row.mpPlanned->mTimeless > 0) {
      tooltip += ", " + std::to_string(row.mpPlanned->mTimeless) + " without a time";
    }
    std::vector<Bar> bars = BarsOf(*row.mpPlanned, scale);
    const auto wiped = std::ranges::stable_partition(bars, &Bar::mIsKept);
    DrawBars({wiped.begin(), wiped.end()}, y, height, sWiped, tooltip);
    DrawBars({bars.begin(), wiped.begin()}, y, height, sKept, tooltip);
  }

  void DrawBars(const std::vector<Bar>& bars, double y, double height, const char* style,
                const std::string& tooltip) {
    for (const Bar& bar : Merged(bars)) {
      mSvg.Rect(bar.mFrom, y, bar.mTo - bar.mFrom, height, style, tooltip);
    }
  }

  void DrawAxis() {
    mY += 4;
    mSvg.Line(mLeft, mY, mRight, mY, sAxis);
    DrawTicks(mScale, 11, sInk);
    mSvg.Text((mLeft + mRight) / 2, mY + 36, 12, "time", Anchored(sInk, "middle"));
    mY += 44;
  }

  void DrawTicks(const TimeScale& scale, double size, const char* style) {
    double labelled = 0;
    for (const TimeScale::Tick& tick : scale.Ticks()) {
      mSvg.Line(tick.mX, mY, tick.mX, mY + 5, sAxis);
      const double half = Svg::TextWidth(tick.mLabel, size) / 2;
      if (tick.mX - half > labelled) {
        mSvg.Text(tick.mX, mY + 7 + size, size, tick.mLabel, Anchored(style, "middle"));
        labelled = tick.mX + half + 6;
      }
    }
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
      const std::string file = one.mFile.empty() ? "" : GetFilenameFromPath(one.mFile);
      DrawNote(one.About(file) + ": " + one.mReason, sRed);
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
  bool mHasAxis = false;  // the last panel
  double mY = 0;          // how far down the picture is drawn
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
