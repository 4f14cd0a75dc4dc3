// Progressive scans decoded on two threads, in groups that share no coefficient.
#include "decode/scan_threads.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <memory>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "decode/decode_state.h"
#include "decode/huffman.h"
#include "decode/progressive.h"
#include "platform/system_info.h"

namespace corvi {
namespace {

// A file of more scans is decoded one scan after another: each planned scan keeps its tables.
constexpr size_t kMaxPlannedScans = 64;
// A frame of fewer blocks is decoded on one thread: a second one would not pay for itself.
constexpr uint64_t kMinBlocks = 16384;

std::atomic<uint64_t> two_thread_scans{0};

std::unique_ptr<HuffmanTable> CloneTable(const HuffmanTable& table) {
  auto copy = std::make_unique<HuffmanTable>();
  const size_t entries = static_cast<size_t>(table.page_count) * 256;
  if (entries != 0) {
    copy->pages = new uint16_t[entries];
    std::memcpy(copy->pages, table.pages, entries * sizeof(uint16_t));
  }
  copy->page_count = table.page_count;
  copy->page_capacity = table.page_count;
  return copy;
}

// A copy of a state's fields whose tables are lent to it: they are taken back before the copy
// goes, so that it deletes only its components.
struct LentState {
  DecodeState state;

  explicit LentState(const DecodeState& from) {
    for (int i = 0; i < 4; ++i) {
      if (from.components[i] != nullptr) {
        state.components[i] = new ComponentInfo(*from.components[i]);
      }
      state.quant_tables[i] = from.quant_tables[i];
      state.dc_tables[i] = from.dc_tables[i];
      state.ac_tables[i] = from.ac_tables[i];
    }
    state.frame_mode = from.frame_mode;
    state.precision = from.precision;
    state.width = from.width;
    state.height = from.height;
    state.restart_interval = from.restart_interval;
    state.spectral_start = from.spectral_start;
    state.spectral_end = from.spectral_end;
    state.approx_high = from.approx_high;
    state.approx_low = from.approx_low;
    state.scan_components = from.scan_components;
    state.sampling_mode = from.sampling_mode;
    state.mcu_width = from.mcu_width;
    state.mcu_height = from.mcu_height;
    state.blocks_per_mcu = from.blocks_per_mcu;
    state.mcus_across = from.mcus_across;
    state.mcus_down = from.mcus_down;
    state.mcu_count = from.mcu_count;
    state.blocks_per_row = from.blocks_per_row;
    state.limits = from.limits;
    state.keep_pixels = from.keep_pixels;
    state.skip_idle = from.skip_idle;
    state.threads = from.threads;
  }
  LentState(const LentState&) = delete;
  LentState& operator=(const LentState&) = delete;
  ~LentState() {
    for (int i = 0; i < 4; ++i) {
      state.quant_tables[i] = nullptr;
      state.dc_tables[i] = nullptr;
      state.ac_tables[i] = nullptr;
    }
  }
};

// The state that the planning walks move on. Its Huffman tables are its own until a scan borrows
// them; then they go to `kept` and it goes on with copies, which a DHT segment may replace.
struct PlanState : LentState {
  std::vector<std::unique_ptr<HuffmanTable>>& kept;

  PlanState(const DecodeState& from, std::vector<std::unique_ptr<HuffmanTable>>& tables)
      : LentState(from), kept(tables) {
    for (int i = 0; i < 4; ++i) {
      state.dc_tables[i] =
          from.dc_tables[i] != nullptr ? CloneTable(*from.dc_tables[i]).release() : nullptr;
      state.ac_tables[i] =
          from.ac_tables[i] != nullptr ? CloneTable(*from.ac_tables[i]).release() : nullptr;
    }
  }
  // Keeps the current tables for the scans that borrowed them; with `copy`, goes on with copies.
  void Keep(bool copy) {
    for (HuffmanTable** slots : {state.dc_tables, state.ac_tables}) {
      for (int i = 0; i < 4; ++i) {
        if (slots[i] != nullptr) {
          kept.emplace_back(slots[i]);
          slots[i] = copy ? CloneTable(*kept.back()).release() : nullptr;
        }
      }
    }
  }
  ~PlanState() { Keep(false); }
};

// One planned scan.
struct ScanJob {
  std::unique_ptr<LentState> copy;  // the state the scan decodes with
  const uint8_t* start = nullptr;   // the first byte of its data
  // The first marker behind `start` that is no restart marker, or the end of the data: where the
  // scan's data ends when the scan reads no further.
  const uint8_t* stop = nullptr;
  BitReader reader;  // after the scan
  bool failed = false;
  int32_t group = 0;
};

// The first 0xFF at or behind `from` that a refill stops at and a restart step does not pass:
// followed by neither 0 nor a restart code, or the last byte. `end` when there is none.
const uint8_t* NextStop(const uint8_t* from, const uint8_t* end) {
  const uint8_t* p = from;
  while (p < end) {
    const void* found = std::memchr(p, 0xFF, static_cast<size_t>(end - p));
    if (found == nullptr) {
      return end;
    }
    p = static_cast<const uint8_t*>(found);
    if (end - p < 2) {
      return p;
    }
    const uint8_t code = p[1];
    if (code != 0 && (code < 0xD0 || code > 0xD7)) {
      return p;
    }
    p += 2;
  }
  return end;
}

// Whether the walk between scans, started at `from`, passes only zero bytes and stuffed FF 00
// pairs before it reads its first marker prefix at `stop`.
bool PassesTo(const uint8_t* from, const uint8_t* stop) {
  const uint8_t* p = from;
  while (p < stop) {
    if (*p == 0) {
      ++p;
    } else if (*p == 0xFF && stop - p >= 2 && p[1] == 0) {
      p += 2;
    } else {
      return false;
    }
  }
  return p == stop;
}

int32_t FindGroup(std::vector<int32_t>& parent, int32_t i) {
  while (parent[static_cast<size_t>(i)] != i) {
    parent[static_cast<size_t>(i)] = parent[static_cast<size_t>(parent[static_cast<size_t>(i)])];
    i = parent[static_cast<size_t>(i)];
  }
  return i;
}

// Whether two scans may touch the same coefficient: a component in both, and bands that meet.
bool Overlap(const DecodeState& a, const DecodeState& b) {
  bool shared = false;
  for (int slot = 0; slot < 4; ++slot) {
    const ComponentInfo* ca = a.components[slot];
    const ComponentInfo* cb = b.components[slot];
    shared = shared || (ca != nullptr && cb != nullptr && ca->in_scan && cb->in_scan);
  }
  return shared &&
         std::max(a.spectral_start, b.spectral_start) <= std::min(a.spectral_end, b.spectral_end);
}

}  // namespace

bool DecodeScansOnTwoThreads(DecodeState& state, RawLayer& layer, CoefficientStore& store,
                             BitReader& reader, RowFinisher* follow) {
  const uint64_t block_count = uint64_t(uint32_t(state.mcu_count)) * uint32_t(state.blocks_per_mcu);
  if (block_count < kMinBlocks || reader.cursor >= reader.end ||
      std::thread::hardware_concurrency() < 2) {
    return false;
  }
  const uint8_t* const end = reader.end;

  // Plan: each scan's state and data, from the markers behind the first 0xFF that ends its data.
  std::vector<std::unique_ptr<HuffmanTable>> kept;
  std::vector<ScanJob> jobs;
  {
    PlanState plan(state, kept);
    const uint8_t* cursor = reader.cursor;
    try {
      while (cursor < end) {
        const uint32_t limit = state.limits.max_scans;  // 0: none
        if (jobs.size() == kMaxPlannedScans || (limit != 0 && jobs.size() >= limit)) {
          return false;
        }
        ScanJob& job = jobs.emplace_back();
        job.copy = std::make_unique<LentState>(plan.state);
        plan.Keep(true);
        job.start = cursor;
        job.stop = NextStop(cursor, end);
        if (job.stop == end) {
          break;
        }
        const auto remaining = static_cast<int32_t>(end - job.stop);
        const int64_t position = WalkToNextScan(plan.state, layer, job.stop, remaining);
        cursor = position < remaining ? job.stop + position : end;
      }
    } catch (...) {
      return false;  // the scans are decoded in order, and the failure comes where it belongs
    }
  }

  // Group the scans that may touch the same coefficient, and deal the groups out to two threads,
  // the largest first (by the bytes of their data), each to the thread with less work so far.
  const auto count = static_cast<int32_t>(jobs.size());
  std::vector<int32_t> parent(jobs.size());
  for (int32_t i = 0; i < count; ++i) {
    parent[static_cast<size_t>(i)] = i;
    for (int32_t j = 0; j < i; ++j) {
      if (Overlap(jobs[static_cast<size_t>(i)].copy->state,
                  jobs[static_cast<size_t>(j)].copy->state)) {
        parent[static_cast<size_t>(FindGroup(parent, i))] = FindGroup(parent, j);
      }
    }
  }
  std::vector<uint64_t> weight(jobs.size(), 0);
  for (int32_t i = 0; i < count; ++i) {
    const ScanJob& job = jobs[static_cast<size_t>(i)];
    weight[static_cast<size_t>(FindGroup(parent, i))] +=
        static_cast<uint64_t>(job.stop - job.start);
  }
  std::vector<int32_t> roots;
  for (int32_t i = 0; i < count; ++i) {
    if (FindGroup(parent, i) == i) {
      roots.push_back(i);
    }
  }
  if (roots.size() < 2) {
    return false;
  }
  std::stable_sort(roots.begin(), roots.end(), [&](int32_t a, int32_t b) {
    return weight[static_cast<size_t>(a)] > weight[static_cast<size_t>(b)];
  });
  std::vector<int32_t> thread_of(jobs.size(), 0);
  uint64_t load[2] = {0, 0};
  for (int32_t root : roots) {
    const int32_t t = load[1] < load[0] ? 1 : 0;
    thread_of[static_cast<size_t>(root)] = t;
    load[t] += weight[static_cast<size_t>(root)];
  }
  for (int32_t i = 0; i < count; ++i) {
    jobs[static_cast<size_t>(i)].group = thread_of[static_cast<size_t>(FindGroup(parent, i))];
  }

  // Decode: each thread its scans in file order, into the shared store with its own record of
  // touched rows and pending DC values. The groups touch disjoint coefficients.
  CoefficientStore views[2];
  views[0].coefficients = store.coefficients;
  views[1].coefficients = store.coefficients;
  const ScanJob* last_first = nullptr;  // the first thread's last scan
  for (const ScanJob& job : jobs) {
    last_first = job.group == 0 ? &job : last_first;
  }
  std::atomic<bool> stop_all{false};
  // Following: the rows that the first thread's last scan has passed, and whether it may be
  // followed (0 while that scan has not started, 1 yes, 2 no).
  std::atomic<int64_t> decoded_rows{0};
  std::atomic<int32_t> followable{0};
  std::atomic<bool> first_done{false};
  int64_t finished_rows = 0;
  auto run = [&](int32_t t) {
    for (ScanJob& job : jobs) {
      if (job.group != t) {
        continue;
      }
      if (stop_all.load(std::memory_order_relaxed)) {
        return;
      }
      if (&job == last_first) {
        // Every row it passes is final: the other scans of this thread are done, and so are
        // the other thread's by the time that one follows. A pending DC value, or a last scan
        // that could leave one, would still have to go in: then nothing is followed.
        const DecodeState& s = job.copy->state;
        const bool ok = follow != nullptr && views[0].pending.empty() &&
                        !(s.spectral_start == 0 && s.approx_high == 0);
        if (ok) {
          views[0].decoded_rows = &decoded_rows;
        }
        followable.store(ok ? 1 : 2, std::memory_order_release);
      }
      job.reader.cursor = job.start;
      job.reader.end = end;
      job.reader.Clear();
      try {
        DecodeScan(job.copy->state, views[t], job.reader);
      } catch (...) {
        job.failed = true;
        stop_all.store(true, std::memory_order_relaxed);
        return;
      }
    }
  };
  auto follow_rows = [&]() {
    if (follow == nullptr || stop_all.load() || !views[1].pending.empty()) {
      return;
    }
    for (;;) {
      const bool done = first_done.load(std::memory_order_acquire);
      const int32_t state_now = followable.load(std::memory_order_acquire);
      if (state_now == 2 || stop_all.load(std::memory_order_relaxed)) {
        return;
      }
      const int64_t ready = decoded_rows.load(std::memory_order_acquire);
      if (ready > finished_rows) {
        const int64_t last = ready < finished_rows + 8 ? ready : finished_rows + 8;
        try {
          follow->Finish(finished_rows, last, 1);
        } catch (...) {
          return;  // the rows not yet finished are done after the scans
        }
        finished_rows = last;
        continue;
      }
      if (done) {
        return;
      }
      std::this_thread::sleep_for(std::chrono::microseconds(50));
    }
  };
  std::thread second;
  try {
    second = std::thread([&]() {
      run(1);
      follow_rows();
    });
  } catch (const std::system_error&) {
    return false;
  }
  run(0);
  first_done.store(true, std::memory_order_release);
  second.join();

  // Check: every scan decoded, and stopped reading where the walk behind it passes only filler
  // before the marker the plan started from (the last one at the end of the data). Then every
  // scan started where, and with the state that, one scan after another gives.
  bool planned = !stop_all.load();
  for (const ScanJob& job : jobs) {
    if (!planned) {
      break;
    }
    const uint8_t* stopped = job.reader.cursor;
    planned = job.stop == end ? stopped >= end : stopped < end && PassesTo(stopped, job.stop);
  }
  if (!planned) {
    const uint64_t store_bytes = block_count * 64 * sizeof(int16_t);
    ZeroMemory(store.coefficients, store_bytes);
    return false;
  }

  // The state moves on as one scan after another moves it: the same walks from the same bytes.
  // The last walk may end at an SOS whose length reaches past the data: no scan follows it.
  for (const ScanJob& job : jobs) {
    BindScanTables(state);
    if (job.stop == end) {
      reader = job.reader;
      break;
    }
    WalkToNextScan(state, layer, job.stop, static_cast<int32_t>(end - job.stop));
    reader.Clear();
    reader.cursor = end;
  }

  // One record for the store: the rows either thread touched, and the pending values of each
  // (a component's DC values are all decoded on one thread).
  store.touched_rows = std::max(views[0].touched_rows, views[1].touched_rows);
  store.ac_touched_rows = std::max(views[0].ac_touched_rows, views[1].ac_touched_rows);
  if (views[1].pending.empty()) {
    store.pending = std::move(views[0].pending);
  } else if (views[0].pending.empty()) {
    store.pending = std::move(views[1].pending);
  } else {
    store.pending = std::move(views[0].pending);
    for (size_t i = 0; i < store.pending.size(); ++i) {
      if (store.pending[i].set == 0) {
        store.pending[i] = views[1].pending[i];
      }
    }
  }
  store.finished_rows = finished_rows;
  two_thread_scans.fetch_add(1, std::memory_order_relaxed);
  return true;
}

uint64_t TwoThreadScanCount() {
  return two_thread_scans.load(std::memory_order_relaxed);
}

}  // namespace corvi
