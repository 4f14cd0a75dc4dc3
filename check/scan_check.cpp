// The check of one scan's entropy-coded data.
#include "check/scan_check.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "check/entropy_reader.h"

namespace corvi {

CoefficientMasks::CoefficientMasks(const FrameGeometry& geometry) : frame(geometry) {}

CoefficientMasks::~CoefficientMasks() {
  for (uint64_t*& m : masks) {
    std::free(m);
    m = nullptr;
  }
}

uint64_t* CoefficientMasks::Masks(int32_t index) {
  if (masks[index] == nullptr) {
    const FrameGeometry::Component& c = frame.components[index];
    const auto blocks = static_cast<size_t>(c.padded_across) * static_cast<size_t>(c.padded_down);
    // calloc: large blocks come zeroed from the system, and pages no scan writes stay unused.
    masks[index] = static_cast<uint64_t*>(std::calloc(blocks, sizeof(uint64_t)));
    if (masks[index] == nullptr) {
      return nullptr;
    }
    rows[index].reset(new (std::nothrow) uint32_t[static_cast<size_t>(c.padded_down)]());
    if (rows[index] == nullptr) {
      std::free(masks[index]);
      masks[index] = nullptr;
      return nullptr;
    }
    bytes += blocks * sizeof(uint64_t) + static_cast<uint64_t>(c.padded_down) * sizeof(uint32_t);
  }
  return masks[index];
}

MarkerFound FindMarker(const uint8_t* p, const uint8_t* end) {
  MarkerFound m;
  m.stray_start = p;
  while (p < end) {
    const void* hit = std::memchr(p, 0xFF, static_cast<size_t>(end - p));
    if (hit == nullptr) {
      m.stray += end - p;
      return m;
    }
    const auto* ff = static_cast<const uint8_t*>(hit);
    m.stray += ff - p;
    const uint8_t* q = ff + 1;
    while (q < end && *q == 0xFF) {
      ++q;
    }
    if (q == end) {
      return m;  // 0xFF bytes with nothing behind them: a marker cut off at the end
    }
    if (*q == 0) {
      m.stray += q + 1 - ff;  // FF 00 outside the data is stray too
      p = q + 1;
      continue;
    }
    m.found = true;
    m.code = *q;
    m.ff = ff;
    m.marker = q - 1;
    return m;
  }
  return m;
}

namespace {

// What stopped an interval's data early.
enum class Loss : uint8_t { kNone, kRanOut, kBadCode };

// The state of one scan's check shared by the block routines: the reader, where the data ran
// out, and the restart markers between intervals.
class ScanRun {
 public:
  ScanRun(const ScanCheckInput& scan_input, EntropyReader& entropy, IssueList& list)
      : in(scan_input), reader(entropy), issues(list) {}

  // The data of the current interval ran out (or held a bad code) in `unit`, at block `slot`.
  void Lost(Loss loss, int64_t unit, int32_t slot) {
    ++lost_intervals;
    if (skip_empty_interval) {
      return;  // an interval known to be empty: its restart marker was already reported
    }
    if (first_loss != Loss::kNone) {
      return;
    }
    first_loss = loss;
    loss_unit = unit;
    loss_slot = slot;
    const uint8_t* stop = reader.Stop() != nullptr ? reader.Stop() : reader.Next();
    loss_at = loss == Loss::kBadCode ? reader.Position() : stop;
  }

  void Overrun(int64_t unit, int32_t slot) {
    ++overruns;
    if (overruns == 1) {
      overrun_unit = unit;
      overrun_slot = slot;
      overrun_at = reader.Position();
    }
  }

  // Ends a routine's run over an interval: the reader back in place, and where the data was
  // lost, if it was. Returns the unit the run stopped at.
  int64_t EndRun(const EntropyReader& r, Loss loss, int64_t unit, int32_t slot) {
    reader = r;
    if (loss != Loss::kNone) {
      Lost(loss, unit, slot);
      interval_lost = true;
    }
    return unit;
  }

  // Takes the restart marker behind an interval. False when no later interval can get data.
  bool Restart(uint32_t number);
  // Adds the issues of the whole scan once it is done.
  void Finish(int64_t units, int64_t decoded);

  const ScanCheckInput& in;
  EntropyReader& reader;
  IssueList& issues;
  bool skip_empty_interval = false;
  bool interval_lost = false;

 private:
  Issue At(const char* kind, Severity severity, const uint8_t* p, int64_t unit, int32_t slot) const;
  void Where(Issue& issue, int64_t unit, int32_t slot) const;
  std::string UnitText(int64_t unit) const;

  Loss first_loss = Loss::kNone;
  int64_t loss_unit = 0;
  int32_t loss_slot = 0;
  const uint8_t* loss_at = nullptr;
  int64_t lost_intervals = 0;
  int64_t overruns = 0;
  int64_t overrun_unit = 0;
  int32_t overrun_slot = 0;
  const uint8_t* overrun_at = nullptr;
  int32_t restart_issues = 0;
};

constexpr int32_t kMaxRestartIssues = 8;

void ScanRun::Where(Issue& issue, int64_t unit, int32_t slot) const {
  const int64_t across = std::max<int64_t>(in.geometry.units_across, 1);
  issue.mcu_row = static_cast<int32_t>(unit / across);
  issue.mcu_column = static_cast<int32_t>(unit % across);
  const int32_t scan_index = in.geometry.blocks_in_unit > slot ? in.geometry.block_slot[slot] : 0;
  const int32_t frame_index = in.geometry.frame_index[scan_index];
  issue.component = in.frame_fields->components[static_cast<size_t>(frame_index)].id;
}

Issue ScanRun::At(const char* kind, Severity severity, const uint8_t* p, int64_t unit,
                  int32_t slot) const {
  Issue issue;
  issue.kind = kind;
  issue.severity = severity;
  issue.offset = p - in.file_base;
  issue.thumbnail = in.thumbnail;
  Where(issue, unit, slot);
  return issue;
}

std::string ScanRun::UnitText(int64_t unit) const {
  const int64_t across = std::max<int64_t>(in.geometry.units_across, 1);
  return Format("%s row %lld, column %lld", in.geometry.count > 1 ? "MCU" : "block",
                static_cast<long long>(unit / across), static_cast<long long>(unit % across));
}

bool ScanRun::Restart(uint32_t number) {
  const int expected = static_cast<int>(number & 7);
  const bool lost = interval_lost;
  interval_lost = false;
  skip_empty_interval = false;
  // Whole bytes the interval did not use, up to the marker, are left over.
  const int64_t held = reader.HeldBytes();
  const uint8_t* position = reader.Position();
  MarkerFound m =
      FindMarker(reader.Stop() != nullptr ? reader.Stop() : reader.Next(), reader.End());
  const int64_t left_over = held + m.stray;
  if (!lost && left_over > 0 && restart_issues < kMaxRestartIssues) {
    ++restart_issues;
    Issue issue = At("extraneous_bytes", Severity::kDamaged, position, -1, 0);
    issue.mcu_row = issue.mcu_column = issue.component = -1;
    issue.length = left_over;
    issue.message = Format("%lld bytes left over before the restart marker of scan %d",
                           static_cast<long long>(left_over), in.scan_number);
    issues.Add(std::move(issue));
  }
  // T.81 requires RSTn with n = number mod 8. What is done otherwise follows libjpeg-turbo's
  // jpeg_resync_to_restart, so that the intervals behind a damaged one line up as there.
  bool reported = false;
  for (;;) {
    if (!m.found) {
      reader.Seek(reader.End());
      return false;  // no marker up to the end: no more data for this scan
    }
    const bool rst = m.code >= 0xD0 && m.code <= 0xD7;
    const int n = m.code - 0xD0;
    if (rst && n == expected) {
      reader.Seek(m.marker + 2);
      return true;
    }
    // A segment's marker ends the scan's data: that the rest is lost, the run-out says.
    if (!reported && restart_issues < kMaxRestartIssues && (rst || m.code < 0xC0)) {
      reported = true;
      ++restart_issues;
      Issue issue = At("restart_marker", Severity::kDamaged, m.marker, -1, 0);
      issue.mcu_row = issue.mcu_column = issue.component = -1;
      issue.message = Format("%s where RST%d was expected in scan %d", MarkerName(m.code), expected,
                             in.scan_number);
      issues.Add(std::move(issue));
    }
    if (!rst && m.code >= 0xC0) {
      // A segment's marker: the scan's data is over. Its restarts and intervals stop here.
      reader.Seek(m.ff);
      return false;
    }
    const int ahead = (n - expected) & 7;
    if (rst && (ahead == 1 || ahead == 2)) {
      // One of the next two: this interval's data is missing; the marker stays for later.
      reader.Seek(m.ff);
      skip_empty_interval = true;
      return true;
    }
    if (!rst || ahead == 6 || ahead == 7) {
      m = FindMarker(m.marker + 2, reader.End());  // an earlier one, or no marker: pass it by
      continue;
    }
    reader.Seek(m.marker + 2);  // too far to tell: take it as the expected one
    return true;
  }
}

void ScanRun::Finish(int64_t units, int64_t decoded) {
  if (first_loss != Loss::kNone) {
    const double share =
        units > 0 ? 100.0 * static_cast<double>(decoded) / static_cast<double>(units) : 0.0;
    std::string tail =
        Format("; %lld of %lld %ss decoded (%.1f%%)", static_cast<long long>(decoded),
               static_cast<long long>(units), in.geometry.count > 1 ? "MCU" : "block", share);
    if (lost_intervals > 1) {
      tail += Format(", data lost in %lld intervals", static_cast<long long>(lost_intervals));
    }
    Issue issue;
    if (first_loss == Loss::kBadCode) {
      issue = At("bad_huffman_code", Severity::kDamaged, loss_at, loss_unit, loss_slot);
      issue.message = Format("a code that no Huffman table of scan %d holds, at %s", in.scan_number,
                             UnitText(loss_unit).c_str()) +
                      tail;
    } else if (loss_at == reader.End()) {
      issue = At("truncated", Severity::kDamaged, loss_at, loss_unit, loss_slot);
      issue.message = Format("the file ends inside the data of scan %d, at %s", in.scan_number,
                             UnitText(loss_unit).c_str()) +
                      tail;
    } else {
      issue = At("marker_in_data", Severity::kDamaged, loss_at, loss_unit, loss_slot);
      const MarkerFound m = FindMarker(loss_at, reader.End());
      issue.message =
          Format("marker %s stops the data of scan %d at %s", m.found ? MarkerName(m.code) : "0xff",
                 in.scan_number, UnitText(loss_unit).c_str()) +
          tail;
    }
    issues.Add(std::move(issue));
  }
  if (overruns > 0) {
    Issue issue =
        At("coefficient_overrun", Severity::kDamaged, overrun_at, overrun_unit, overrun_slot);
    issue.message = Format("a run of zeros goes past the end of the band in scan %d, at %s",
                           in.scan_number, UnitText(overrun_unit).c_str());
    if (overruns > 1) {
      issue.message += Format(" (%lld blocks in all)", static_cast<long long>(overruns));
    }
    issues.Add(std::move(issue));
  }
}

// A symbol the table lacks: a bad code, or a code the stop cut off.
inline Loss Unreadable(const EntropyReader& r) {
  return r.WindowReachesStop() ? Loss::kRanOut : Loss::kBadCode;
}

// Runs `block(reader, unit, slot)` on every block of units [first, last) with the scan's reader,
// up to the first block whose data ran out or held a bad code; returns the unit it stopped at.
template <typename Block>
int64_t EachBlock(ScanRun& run, int64_t first, int64_t last, Block&& block) {
  EntropyReader r = run.reader;  // in locals for the loop; back in place at the end
  const int32_t blocks = run.in.geometry.blocks_in_unit;
  for (int64_t unit = first; unit < last; ++unit) {
    for (int32_t slot = 0; slot < blocks; ++slot) {
      Loss loss = block(r, unit, slot);
      if (loss == Loss::kNone && r.RanOut()) {
        loss = Loss::kRanOut;
      }
      if (loss != Loss::kNone) {
        return run.EndRun(r, loss, unit, slot);
      }
    }
  }
  return run.EndRun(r, Loss::kNone, last, 0);
}

// Sequential: every block codes its DC difference and its 63 AC coefficients (T.81 F.2.2).
class SequentialBlocks {
 public:
  explicit SequentialBlocks(ScanRun& scan_run) : run(scan_run) {
    const ScanGeometry& g = run.in.geometry;
    for (int32_t b = 0; b < g.blocks_in_unit; ++b) {
      dc[b] = run.in.dc[g.block_slot[b]];
      ac[b] = run.in.ac[g.block_slot[b]];
      runs[b] = run.in.ac_runs[g.block_slot[b]];
    }
  }

  int64_t Run(int64_t first, int64_t last) {
    return EachBlock(run, first, last, [this](EntropyReader& r, int64_t unit, int32_t slot) {
      r.Refill();
      // The DC difference: a code and as many extra bits as its symbol says (at most 15).
      const uint32_t dc_step = dc[slot]->step[r.Peek() >> (64 - CheckTable::kLookBits)];
      if (dc_step != 0) {
        r.Skip(static_cast<int>(dc_step & 31));
      } else {
        uint32_t s;
        if (!r.DecodeSymbol(*dc[slot], s)) {
          return Unreadable(r);
        }
        r.Skip(static_cast<int>(s));
      }
      const uint32_t k =
          runs[slot] != nullptr ? AcRuns(r, *ac[slot], runs[slot]) : AcSymbols(r, *ac[slot], 1);
      if (k == kUnreadable) {
        return Unreadable(r);
      }
      if (k > 64 && k < kEndOfBlock) {
        run.reader = r;
        run.Overrun(unit, slot);
      }
      return Loss::kNone;
    });
  }

  void Restart(uint32_t) {}

 private:
  static constexpr uint32_t kUnreadable = 0xFFFF;

  // The AC symbols of a block from index `k` on, one lookup each. Returns the index behind the
  // block: 64 for a full block, more for a run past the end (below kEndOfBlock) or an end of
  // block (from kEndOfBlock on); kUnreadable for a code the table lacks.
  static uint32_t AcSymbols(EntropyReader& r, const CheckTable& table, uint32_t k) {
    do {
      r.Refill();
      const uint32_t step = table.step[r.Peek() >> (64 - CheckTable::kLookBits)];
      if (step != 0) {
        r.Skip(static_cast<int>(step & 31));
        k += step >> 8;
        continue;
      }
      uint32_t rs;
      if (!r.DecodeSymbol(table, rs)) {
        return kUnreadable;
      }
      const uint32_t size = rs & 15;
      if (size != 0) {
        r.Skip(static_cast<int>(size));
        k += (rs >> 4) + 1;
      } else {
        k += (rs >> 4) == 15 ? 16 : kEndOfBlock;
      }
    } while (k < 64);
    return k;
  }

  // The same, several short symbols a lookup while they stay inside the block.
  static uint32_t AcRuns(EntropyReader& r, const CheckTable& table, const uint16_t* runs) {
    uint32_t k = 1;
    for (;;) {
      r.Refill();
      const uint32_t e = runs[r.Peek() >> (64 - CheckTable::kRunBits)];
      const uint32_t advance = e >> 8;
      // The lookup knows nothing of where the block ends: a run that reaches its end and goes
      // on (even with an end of block, which would belong to the next block's place) is read
      // one symbol at a time.
      const bool ends = (e & kRunEndsBlock) != 0;
      if (e == 0 || k + advance > 64 || (ends && k + advance == 64)) {
        return AcSymbols(r, table, k);  // the rest one symbol at a time
      }
      r.Skip(static_cast<int>(e & 15));
      k += advance;
      if (ends) {
        return k + kEndOfBlock;
      }
      if (k >= 64) {
        return k;
      }
    }
  }

  ScanRun& run;
  const CheckTable* dc[10] = {};
  const CheckTable* ac[10] = {};
  const uint16_t* runs[10] = {};
};

// Progressive DC scans: a first scan codes differences, a refinement one bit per block (T.81
// G.1.2.1).
class DcBlocks {
 public:
  DcBlocks(ScanRun& scan_run, bool refine) : run(scan_run), refinement(refine) {
    const ScanGeometry& g = run.in.geometry;
    for (int32_t b = 0; b < g.blocks_in_unit; ++b) {
      dc[b] = run.in.dc[g.block_slot[b]];
    }
  }

  int64_t Run(int64_t first, int64_t last) {
    return EachBlock(run, first, last, [this](EntropyReader& r, int64_t, int32_t slot) {
      r.Refill();
      if (refinement) {
        r.Skip(1);
        return Loss::kNone;
      }
      uint32_t s;
      if (!r.DecodeSymbol(*dc[slot], s)) {
        return Unreadable(r);
      }
      r.Skip(static_cast<int>(s));
      return Loss::kNone;
    });
  }

  void Restart(uint32_t) {}

 private:
  ScanRun& run;
  bool refinement;
  const CheckTable* dc[10] = {};
};

// Progressive AC scans of one component: a first scan marks the coefficients it makes non-zero,
// a refinement scan reads a correction bit for each coefficient already non-zero and marks the
// new ones (T.81 G.1.2.2, G.1.2.3). Blocks inside an end-of-band run read nothing in a first
// scan and are passed over at once; in a refinement scan, block rows with nothing non-zero are.
class AcBlocks {
 public:
  AcBlocks(ScanRun& scan_run, bool refine, uint64_t* component_masks, uint32_t* row_counts,
           int32_t mask_stride)
      : run(scan_run),
        refinement(refine),
        table(*run.in.ac[0]),
        masks(component_masks),
        rows(row_counts),
        stride(mask_stride),
        across(std::max<int32_t>(run.in.geometry.units_across, 1)),
        ss(run.in.fields->spectral_start),
        se(run.in.fields->spectral_end) {
    // Coefficients ss to se, as bits of a mask.
    band = (se >= 63 ? ~uint64_t{0} : (uint64_t{1} << (se + 1)) - 1) & ~((uint64_t{1} << ss) - 1);
  }

  int64_t Run(int64_t first, int64_t last) {
    EntropyReader r = run.reader;
    int64_t unit = first;
    Loss loss = Loss::kNone;
    while (unit < last) {
      if (eob_run > 0 && !refinement) {
        const int64_t n = std::min<int64_t>(eob_run, last - unit);
        eob_run -= static_cast<uint32_t>(n);
        unit += n;
        continue;
      }
      uint64_t& mask = MaskOf(unit);
      if (eob_run > 0 && mask == 0 && RowIsEmpty(unit)) {
        // A refinement of blocks with no coefficient yet: nothing to read up to the row's end.
        const int64_t row_end = (unit / across + 1) * across;
        const int64_t n = std::min<int64_t>({int64_t{eob_run}, last - unit, row_end - unit});
        eob_run -= static_cast<uint32_t>(n);
        unit += n;
        continue;
      }
      r.Refill();
      loss = refinement ? Refine(r, unit, mask) : First(r, unit, mask);
      if (loss == Loss::kNone && r.RanOut()) {
        loss = Loss::kRanOut;
      }
      if (loss != Loss::kNone) {
        break;
      }
      ++unit;
    }
    if (loss != Loss::kNone) {
      eob_run = 0;
    }
    return run.EndRun(r, loss, unit, 0);
  }

  void Restart(uint32_t) { eob_run = 0; }

 private:
  uint64_t& MaskOf(int64_t unit) { return masks[(unit / across) * stride + unit % across]; }
  bool RowIsEmpty(int64_t unit) const { return rows[unit / across] == 0; }
  void Mark(int64_t unit, uint64_t& mask, uint32_t k) {
    if (mask == 0) {
      ++rows[unit / across];
    }
    mask |= uint64_t{1} << k;
  }

  // The end-of-band run that a symbol of size 0 and run r < 15 starts: 2^r blocks and r bits.
  bool StartEobRun(EntropyReader& r, uint32_t run_bits) {
    uint32_t count = uint32_t{1} << run_bits;
    if (run_bits != 0) {
      r.Refill();
      count += static_cast<uint32_t>(r.Peek() >> (64 - run_bits));
      r.Skip(static_cast<int>(run_bits));
    }
    eob_run = count - 1;  // this block is the first of the run
    return true;
  }

  Loss First(EntropyReader& r, int64_t unit, uint64_t& mask) {
    for (uint32_t k = ss; k <= se;) {
      r.Refill();
      uint32_t rs;
      if (!r.DecodeSymbol(table, rs)) {
        return Unreadable(r);
      }
      const uint32_t zeros = rs >> 4;
      const uint32_t size = rs & 15;
      if (size != 0) {
        k += zeros;
        r.Skip(static_cast<int>(size));
        if (k > se) {
          run.reader = r;
          run.Overrun(unit, 0);
          return Loss::kNone;
        }
        Mark(unit, mask, k);
        ++k;
      } else if (zeros == 15) {
        k += 16;
        if (k > se + 1) {
          run.reader = r;
          run.Overrun(unit, 0);
          return Loss::kNone;
        }
      } else {
        StartEobRun(r, zeros);
        return Loss::kNone;
      }
    }
    return Loss::kNone;
  }

  // Correction bits of the coefficients already non-zero from `k` to the band's end.
  static int Corrections(uint64_t mask, uint64_t band_from_k) {
    return __builtin_popcountll(mask & band_from_k);
  }
  uint64_t From(uint32_t k) const { return k > 63 ? 0 : band & ~((uint64_t{1} << k) - 1); }

  Loss Refine(EntropyReader& r, int64_t unit, uint64_t& mask) {
    uint32_t k = ss;
    if (eob_run == 0) {
      for (; k <= se;) {
        r.Refill();
        uint32_t rs;
        if (!r.DecodeSymbol(table, rs)) {
          return Unreadable(r);
        }
        int32_t zeros = static_cast<int32_t>(rs >> 4);
        const uint32_t size = rs & 15;
        bool newly = false;
        if (size != 0) {
          if (size != 1) {
            return Loss::kBadCode;  // a refinement scan codes new coefficients as +1 or -1
          }
          r.Skip(1);
          newly = true;
        } else if (zeros != 15) {
          StartEobRun(r, static_cast<uint32_t>(zeros));
          eob_run += 1;  // the rest of this block is read as a block of the run, below
          break;
        }
        // Pass `zeros` coefficients that are still zero, reading a correction bit for each
        // non-zero one on the way, then stop on the next zero one.
        for (; k <= se; ++k) {
          if ((mask >> k) & 1) {
            r.Refill();
            r.Skip(1);
          } else if (--zeros < 0) {
            break;
          }
        }
        if (newly) {
          if (k > se) {
            run.reader = r;
            run.Overrun(unit, 0);
          } else {
            Mark(unit, mask, k);
          }
        }
        ++k;
      }
    }
    if (eob_run > 0) {
      int n = Corrections(mask, From(k));
      while (n > 0) {
        r.Refill();
        const int take = n < 56 ? n : 56;
        r.Skip(take);
        n -= take;
      }
      --eob_run;
    }
    return Loss::kNone;
  }

  ScanRun& run;
  bool refinement;
  const CheckTable& table;
  uint64_t* masks;
  uint32_t* rows;
  int32_t stride;
  int64_t across;
  uint32_t ss;
  uint32_t se;
  uint64_t band = 0;
  uint32_t eob_run = 0;
};

// Runs one kind of routine over the scan, taking the restart markers between intervals.
template <typename Blocks>
ScanCheckResult Walk(ScanRun& run, Blocks& blocks) {
  struct Driver {
    ScanRun& run;
    Blocks& blocks;
    int64_t Run(int64_t first, int64_t last) { return blocks.Run(first, last); }
    bool Restart(uint32_t number, int64_t next) {
      blocks.Restart(number);
      const bool lost = run.interval_lost;
      if (run.Restart(number)) {
        return true;
      }
      // No marker lets the data go on: the units from `next` on are lost, unless the interval
      // before already ran out and said so.
      if (!lost) {
        run.Lost(Loss::kRanOut, next, 0);
      }
      return false;
    }
  } driver{run, blocks};
  ScanCheckResult result;
  result.units = run.in.geometry.units;
  result.decoded = WalkScan(run.in.geometry, run.in.restart_interval, driver);
  run.Finish(result.units, result.decoded);
  result.data_lost = result.decoded < result.units;
  return result;
}

}  // namespace

ScanCheckResult CheckScanData(const ScanCheckInput& input, EntropyReader& reader,
                              CoefficientMasks& masks, IssueList& issues) {
  ScanRun run(input, reader, issues);
  const ScanFields& f = *input.fields;
  if (!input.progressive) {
    SequentialBlocks blocks(run);
    return Walk(run, blocks);
  }
  if (f.spectral_start == 0) {
    DcBlocks blocks(run, f.approx_high != 0);
    return Walk(run, blocks);
  }
  const int32_t index = input.geometry.frame_index[0];
  uint64_t* component_masks = masks.Masks(index);
  if (component_masks == nullptr) {
    return ScanCheckResult{};
  }
  AcBlocks blocks(run, f.approx_high != 0, component_masks, masks.RowCounts(index),
                  masks.Stride(index));
  return Walk(run, blocks);
}

}  // namespace corvi
