#include "Executables/KelmorInfo/PlanDrawing.hpp"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <ostream>
#include <span>
#include <string>
#include <vector>

#include "Executables/KelmorInfo/PlanPanels.hpp"
#include "Executables/KelmorInfo/Text.hpp"
#include "Executables/KelmorInfo/TimeScale.hpp"

namespace {

constexpr std::size_t sNarrowest = 40;
constexpr std::size_t sWidest = 2000;
constexpr std::size_t sMostStretches = 3;

constexpr const char* sKept = "\xE2\x96\x88";    // full block
constexpr const char* sBoth = "\xE2\x96\x93";    // dark shade: kept and wiped
constexpr const char* sWiped = "\xE2\x96\x91";   // light shade
constexpr const char* sMisfit = "\xE2\x95\xB3";  // cross
constexpr const char* sJoined = "\xE2\x96\x80";  // upper half block
constexpr const char* sGap = "\xC2\xB7";         // dot

std::string Padded(const std::string& text, std::size_t width) {
  return text + std::string(width - std::min(width, Characters(text)), ' ');
}

// One line of bars: what stands in each of its places.
class CellRow {
 public:
  explicit CellRow(std::size_t count) : mCells(count, " ") {}

  void Fill(double from, double to, const char* mark) {
    const auto last = static_cast<double>(mCells.size() - 1);
    const auto first = static_cast<std::size_t>(std::clamp(from, 0.0, last));
    const auto end = static_cast<std::size_t>(std::clamp(to, 0.0, last));
    for (std::size_t i = first; i <= end; ++i) {
      const bool isBoth = mark == sWiped && (mCells[i] == sKept || mCells[i] == sBoth);
      mCells[i] = isBoth ? sBoth : mark;
    }
  }

  std::string Text() const {
    std::string text;
    for (const char* cell : mCells) {
      text += cell;
    }
    return text;
  }

 private:
  std::vector<const char*> mCells;
};

class Drawing {
 public:
  Drawing(std::ostream& os, const Plan& plan, std::size_t width)
      : mOs(os), mPlan(plan), mWidth(width), mLabels(FileLabels(plan, width / 3)) {
    mLabelWidth = Characters("joined");
    for (const std::string& label : mLabels) {
      mLabelWidth = std::max(mLabelWidth, Characters(label));
    }
    std::size_t counts = 0;
    for (const PlannedSteps& steps : plan.mSteps) {
      for (const PanelRow& row : RowsOf(steps)) {
        counts = std::max(counts, row.CountText().size());
      }
    }
    mCells = mWidth - std::min(mWidth - 10, mLabelWidth + counts + 4);
  }

  void Draw() {
    const TimeScale scale(mPlan, 0, static_cast<double>(mCells));
    for (const PlannedSteps& steps : mPlan.mSteps) {
      if (!steps.mHasTimes) {
        continue;
      }
      PrintHeading(steps);
      DrawRows(steps, RowsOf(steps), scale);
      const std::vector<TimeRange> stretches = ShortStretchesOf(steps, scale);
      for (std::size_t i = 0; i < std::min(stretches.size(), sMostStretches); ++i) {
        DrawStretch(steps, stretches[i]);
      }
      mOs << '\n';
    }
    mOs << sKept << " kept  " << sWiped << " wiped  " << sBoth << " both  " << sMisfit
        << " disagrees  " << sGap << " gap\n";
  }

 private:
  void PrintHeading(const PlannedSteps& steps) {
    const auto [names, agrees, counts] = HeadingOf(mPlan, steps);
    const std::string others =
        names.size() == 1 ? "" : " and " + std::to_string(names.size() - 1) + " more";
    const std::size_t room = mWidth - std::min(mWidth - 8, others.size() + counts.size() + 2);
    const std::string heading = Shortened(Vexa::Printable(names.front()), room) + others;
    mOs << Padded(heading + "  ", mWidth - std::min(mWidth, counts.size())) << counts << '\n';
  }

  void DrawStretch(const PlannedSteps& steps, const TimeRange& stretch) {
    const TimeScale scale(stretch, 0, static_cast<double>(mCells));
    std::vector<PanelRow> rows = RowsOf(steps);
    std::erase_if(rows, [&scale](const PanelRow& row) { return !row.IsOn(scale); });
    mOs << "enlarged, since it is too short to be seen above:\n";
    DrawRows(steps, rows, scale);
  }

  void DrawRows(const PlannedSteps& steps, std::span<const PanelRow> rows, const TimeScale& scale) {
    for (const PanelRow& row : rows) {
      CellRow cells(mCells);
      if (row.mpPlanned != nullptr) {
        std::vector<Bar> bars = BarsOf(*row.mpPlanned, scale);
        std::ranges::stable_partition(bars, &Bar::mIsKept);
        for (const Bar& bar : bars) {
          cells.Fill(bar.mFrom, bar.mTo, bar.mIsKept ? sKept : sWiped);
        }
      } else if (row.IsOn(scale)) {
        cells.Fill(scale.At(row.mpMisfit->mFirst), scale.At(row.mpMisfit->mLast), sMisfit);
      }
      PrintLine(mLabels[static_cast<std::size_t>(row.mFile)], cells.Text(), row.CountText());
    }
    CellRow joined(mCells);
    for (const PlanGap& gap : GapsOf(steps)) {
      if (scale.Shows(gap.mFrom, gap.mTo)) {
        joined.Fill(scale.At(gap.mFrom), scale.At(gap.mTo), sGap);
      }
    }
    for (const Bar& bar : JoinedBarsOf(steps, scale)) {
      joined.Fill(bar.mFrom, bar.mTo, sJoined);
    }
    PrintLine("joined", joined.Text(), std::to_string(steps.mKept));
    PrintLine("", Axis(scale), "");
  }

  // The labels begin where their times lie, as far as they have room.
  std::string Axis(const TimeScale& scale) const {
    std::string line(mCells, ' ');
    std::size_t free = 0;
    for (const TimeScale::Tick& tick : scale.Ticks()) {
      const auto at = static_cast<std::size_t>(std::min(tick.mX, static_cast<double>(mCells - 1)));
      if (at >= free && at + tick.mLabel.size() <= mCells) {
        line.replace(at, tick.mLabel.size(), tick.mLabel);
        free = at + tick.mLabel.size() + 2;
      }
    }
    return line;
  }

  void PrintLine(const std::string& label, const std::string& cells, const std::string& counts) {
    std::string line = Padded(label, mLabelWidth) + "  " + cells;
    const std::size_t used = mLabelWidth + 2 + mCells + counts.size();
    line += std::string(mWidth - std::min(mWidth, used), ' ') + counts;
    line.erase(line.find_last_not_of(' ') + 1);
    mOs << line << '\n';
  }

  std::ostream& mOs;
  const Plan& mPlan;
  std::size_t mWidth;
  std::vector<std::string> mLabels;
  std::size_t mLabelWidth;
  std::size_t mCells;  // of the bars
};

}  // namespace

void DrawInText(std::ostream& os, const Plan& plan, std::size_t width) {
  Drawing(os, plan, std::clamp(width, sNarrowest, sWidest)).Draw();
}

std::size_t OutputWidth() {
  const char* columns = std::getenv("COLUMNS");
  const auto given = static_cast<std::size_t>(
      columns == nullptr ? 0 : std::max(0L, std::strtol(columns, nullptr, 10)));
  winsize size{};
  return given > 0                                                         ? given
         : ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col
                                                                           : 80;
}
