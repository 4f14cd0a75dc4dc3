// corvi-check: checks JPEG files and prints one report for each, as text, JSON lines or CSV.
#include "tool/check_command.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "check/issue.h"
#include "platform/cpu_count.h"
#include "platform/path_walk.h"
#include "report/file_report.h"
#include "report/report_format.h"

namespace corvi {
namespace {

constexpr char kUsage[] =
    "usage: corvi-check [--json [--full] | --csv] [--decode] [--strict] [-q] [-j N]\n"
    "                   [--files-from FILE|-] [-0] [NAME...]\n";

constexpr char kHelp[] =
    "\n"
    "Checks JPEG files and prints one report for each, in the order given. Directories are\n"
    "walked for files ending in .jpg, .jpeg, .jpe or .jfif (any case); a file named is checked\n"
    "whatever its name.\n"
    "\n"
    "  --json              one JSON object a line (--full: the whole report)\n"
    "  --csv               a header line, then one row a file\n"
    "  --decode            also decode the pixels\n"
    "  --strict            exit with 1 also for benign and unsupported files\n"
    "  -q                  print only the files that are not clean\n"
    "  -j N                check N files at once (default: one per usable CPU, at most 64)\n"
    "  --files-from FILE   also check the names in FILE, one a line; - for standard input\n"
    "  -0                  the list's names end in a NUL byte instead\n"
    "  --help, --version\n"
    "\n"
    "Exit status: 2 when a name could not be opened or after a usage error, else 1 when a file\n"
    "is damaged or broken (--strict: not clean), else 0.\n";

// At most this many files are being checked or wait to be written: a slow file holds back at
// most this many finished reports, and more workers than this would have nothing to do.
constexpr uint32_t kWindow = 64;

// Output is written in pieces of about this size, each holding whole reports.
constexpr size_t kOutputBuffer = size_t{1} << 16;

enum class Format : uint8_t { kText, kJson, kCsv };

struct Settings {
  Format format = Format::kText;
  bool full = false;
  bool decode = false;
  bool strict = false;
  bool quiet = false;
  uint32_t jobs = 0;  // 0 until given: one per usable CPU
  bool has_list = false;
  std::string list;  // "-" for standard input
  bool nul_separated = false;
  std::vector<std::string> names;
};

int UsageError(const std::string& problem) {
  std::fprintf(stderr, "corvi-check: %s\n%s", problem.c_str(), kUsage);
  return 2;
}

// A count of files at once: a decimal number from 1; above kWindow it means kWindow.
bool ParseJobs(const char* text, uint32_t& jobs) {
  const char* end = text + std::strlen(text);
  uint64_t value = 0;
  const auto [at, error] = std::from_chars(text, end, value);
  if (error != std::errc() || at != end || value == 0) {
    return false;
  }
  jobs = value > kWindow ? kWindow : static_cast<uint32_t>(value);
  return true;
}

// Reads the command line into `settings`. Returns -1 to go on, else the exit status, after the
// help, the version or the usage error has been printed.
int ParseArguments(int argc, char** argv, Settings& settings) {
  bool json = false;
  bool csv = false;
  bool options_ended = false;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (options_ended || arg.size() < 2 || arg[0] != '-') {
      settings.names.push_back(arg);  // "-" too: a file of that name
    } else if (arg == "--") {
      options_ended = true;
    } else if (arg == "--json") {
      json = true;
    } else if (arg == "--csv") {
      csv = true;
    } else if (arg == "--full") {
      settings.full = true;
    } else if (arg == "--decode") {
      settings.decode = true;
    } else if (arg == "--strict") {
      settings.strict = true;
    } else if (arg == "-q") {
      settings.quiet = true;
    } else if (arg == "-0") {
      settings.nul_separated = true;
    } else if (arg.starts_with("-j")) {
      const char* value = arg.size() > 2 ? argv[i] + 2 : (i + 1 < argc ? argv[++i] : nullptr);
      if (value == nullptr) {
        return UsageError("-j needs a number");
      }
      if (!ParseJobs(value, settings.jobs)) {
        return UsageError(std::string("-j takes a number from 1, not \"") + value + "\"");
      }
    } else if (arg == "--files-from" || arg.starts_with("--files-from=")) {
      const char* value = arg.size() > 12 ? argv[i] + 13 : (i + 1 < argc ? argv[++i] : nullptr);
      if (value == nullptr) {
        return UsageError("--files-from needs a file name");
      }
      if (settings.has_list) {
        return UsageError("one --files-from at a time");
      }
      settings.has_list = true;
      settings.list = value;
    } else if (arg == "--help" || arg == "-h") {
      std::fputs(kUsage, stdout);
      std::fputs(kHelp, stdout);
      return 0;
    } else if (arg == "--version") {
      std::puts("corvi-check " CORVI_VERSION);
      return 0;
    } else {
      return UsageError("unknown option " + arg);
    }
  }
  if (json && csv) {
    return UsageError("--json and --csv exclude each other");
  }
  if (settings.full && !json) {
    return UsageError("--full goes with --json");
  }
  if (settings.nul_separated && !settings.has_list) {
    return UsageError("-0 goes with --files-from");
  }
  if (settings.names.empty() && !settings.has_list) {
    return UsageError("no file named");
  }
  settings.format = json ? Format::kJson : csv ? Format::kCsv : Format::kText;
  return -1;
}

// The system's text for an error code.
std::string ErrorText(int error) {
  char buffer[256];
  // The GNU strerror_r returns its text, which may not be in `buffer`.
  return strerror_r(error, buffer, sizeof buffer);
}

// The report of a name that cannot be checked: broken, with one issue saying why.
FileReport UnreadableReport(const std::string& path, const std::string& message) {
  FileReport report;
  report.file = path;
  report.unreadable = true;
  report.verdict = Verdict::kBroken;
  Issue issue;
  issue.kind = "unreadable";
  issue.severity = Severity::kBroken;
  issue.offset = -1;
  issue.message = message;
  report.issues.Add(std::move(issue));
  return report;
}

// A list of names read one at a time from a file or standard input; the file is closed with it.
class NameList {
 public:
  NameList() = default;
  NameList(const NameList&) = delete;
  NameList& operator=(const NameList&) = delete;
  ~NameList() {
    std::free(line);
    if (file != nullptr && file != stdin) {
      std::fclose(file);
    }
  }

  // False with errno set when the list cannot be opened.
  bool Open(const std::string& name, char end_of_name) {
    separator = end_of_name;
    file = name == "-" ? stdin : std::fopen(name.c_str(), "re");
    return file != nullptr;
  }
  // The next name that is not empty; false at the end of the list or when reading fails.
  bool Next(std::string& name) {
    while (file != nullptr) {
      const ssize_t n = getdelim(&line, &capacity, separator, file);
      if (n < 0) {
        if (std::ferror(file)) {
          error = errno;
        }
        return false;
      }
      size_t length = static_cast<size_t>(n);
      if (length > 0 && line[length - 1] == separator) {
        --length;
      }
      if (length > 0) {
        name.assign(line, length);
        return true;
      }
    }
    return false;
  }
  int error = 0;  // errno of a failed read, 0 when the list was read to its end

 private:
  std::FILE* file = nullptr;
  char separator = '\n';
  char* line = nullptr;  // getdelim's buffer, reused for every name
  size_t capacity = 0;
};

// The names to check, one at a time: those of the command line, then those of the list, each
// walked.
class NameSource {
 public:
  NameSource(const std::vector<std::string>& given, NameList* names_list)
      : names(given), list(names_list) {}

  bool Next(WalkItem& item) {
    std::string name;
    while (!walk.Next(item)) {
      if (next_name < names.size()) {
        walk.Start(names[next_name++]);
      } else if (list != nullptr && list->Next(name)) {
        walk.Start(name);
      } else {
        return false;
      }
    }
    return true;
  }

 private:
  const std::vector<std::string>& names;
  size_t next_name = 0;
  NameList* list;  // null without --files-from
  PathWalk walk;
};

// What checking one name leaves for the writer.
struct Outcome {
  std::string text;  // the file's whole output; empty when -q leaves it out
  Verdict verdict = Verdict::kClean;
  bool unreadable = false;
};

Outcome Render(const FileReport& report, const Settings& settings) {
  Outcome outcome;
  outcome.verdict = report.verdict;
  outcome.unreadable = report.unreadable;
  if (settings.quiet && report.verdict == Verdict::kClean) {
    return outcome;
  }
  switch (settings.format) {
    case Format::kText:
      outcome.text = ReportText(report);
      break;
    case Format::kJson:
      outcome.text = ReportJson(report, settings.full) + "\n";
      break;
    case Format::kCsv:
      outcome.text = ReportCsv(report);
      break;
  }
  return outcome;
}

Outcome CheckOne(const WalkItem& item, const Settings& settings) {
  try {
    if (item.kind != WalkItem::kFile) {
      return Render(
          UnreadableReport(item.path, item.kind == WalkItem::kNotRegular ? "Not a regular file"
                                                                         : ErrorText(item.error)),
          settings);
    }
    InspectOptions options;
    options.decode = settings.decode;
    options.full = settings.full;
    return Render(Inspect(item.path, options), settings);
  } catch (const std::bad_alloc&) {
    // Still one line for the file: what it would have needed was not to be had.
    return Render(UnreadableReport(item.path, ErrorText(ENOMEM)), settings);
  }
}

// Standard output, buffered in whole reports.
class Output {
 public:
  explicit Output(bool flush_each_report) : flush_each(flush_each_report) {}

  void Write(const std::string& text) {
    buffer += text;
    if (flush_each || buffer.size() >= kOutputBuffer) {
      Flush();
    }
  }
  void Flush() {
    size_t done = 0;
    while (done < buffer.size() && error == 0) {
      const ssize_t n = write(STDOUT_FILENO, buffer.data() + done, buffer.size() - done);
      if (n < 0 && errno != EINTR) {
        error = errno;
      } else if (n > 0) {
        done += static_cast<size_t>(n);
      }
    }
    buffer.clear();
  }
  int error = 0;  // errno of a failed write: what follows is dropped

 private:
  bool flush_each;
  std::string buffer;
};

// Checks the names of `source` on `jobs` worker threads and hands the outcomes to `write` in
// the order of the names, on the calling thread. One producer thread walks the names and
// places each in the next slot of a ring of kWindow slots; a worker takes the oldest name not
// yet taken, checks it and leaves its outcome in the slot; the caller writes the slots in turn.
// The producer waits while the ring is full, so a slow file holds back at most kWindow names
// and outcomes, and the output is the same for any number of workers.
class OrderedChecks {
 public:
  OrderedChecks(NameSource& names, const Settings& given) : source(names), settings(given) {}

  // False when the threads could not be started: then nothing was checked.
  template <typename Write>
  bool Run(uint32_t jobs, Write write) {
    if (jobs == 1) {
      // One file at a time on this thread: the same order, and no thread to start.
      WalkItem item;
      while (source.Next(item)) {
        write(CheckOne(item, settings));
      }
      return true;
    }
    std::vector<std::thread> workers;
    try {
      for (uint32_t i = 0; i < jobs; ++i) {
        workers.emplace_back([this] { Work(); });
      }
    } catch (const std::system_error&) {
      if (workers.empty()) {
        return false;
      }
    }
    std::thread producer;
    try {
      producer = std::thread([this] { Produce(); });
    } catch (const std::system_error&) {
      Finish();
      for (std::thread& worker : workers) {
        worker.join();
      }
      return false;
    }
    while (true) {
      std::unique_lock lock(mutex);
      Slot& slot = slots[written % kWindow];
      ready.wait(lock, [&] { return slot.done || (finished && written == published); });
      if (!slot.done) {
        break;
      }
      Outcome outcome = std::move(slot.outcome);
      slot.done = false;
      lock.unlock();
      write(outcome);
      lock.lock();
      ++written;
      room.notify_one();
    }
    producer.join();
    for (std::thread& worker : workers) {
      worker.join();
    }
    return true;
  }

 private:
  struct Slot {
    WalkItem item;
    Outcome outcome;
    bool done = false;
  };

  void Produce() {
    WalkItem item;
    while (source.Next(item)) {
      std::unique_lock lock(mutex);
      room.wait(lock, [&] { return published < written + kWindow; });
      slots[published % kWindow].item = std::move(item);
      ++published;
      work.notify_one();
    }
    Finish();
  }

  void Finish() {
    std::lock_guard lock(mutex);
    finished = true;
    work.notify_all();
    ready.notify_all();
  }

  void Work() {
    std::unique_lock lock(mutex);
    while (true) {
      work.wait(lock, [&] { return taken < published || finished; });
      if (taken == published) {
        return;
      }
      const uint64_t number = taken++;
      Slot& slot = slots[number % kWindow];
      const WalkItem item = std::move(slot.item);
      lock.unlock();
      Outcome outcome = CheckOne(item, settings);
      lock.lock();
      slot.outcome = std::move(outcome);
      slot.done = true;
      if (number == written) {
        ready.notify_one();
      }
    }
  }

  NameSource& source;
  const Settings& settings;
  std::mutex mutex;
  std::condition_variable room;   // the producer waits for a free slot
  std::condition_variable work;   // the workers wait for a name
  std::condition_variable ready;  // the writer waits for the next outcome
  std::array<Slot, kWindow> slots;
  uint64_t published = 0;  // names placed in the ring so far
  uint64_t taken = 0;      // names taken by workers
  uint64_t written = 0;    // outcomes written
  bool finished = false;   // the producer has placed its last name
};

}  // namespace

int RunCheck(int argc, char** argv) {
  Settings settings;
  const int status = ParseArguments(argc, argv, settings);
  if (status >= 0) {
    return status;
  }
  NameList list;
  if (settings.has_list && !list.Open(settings.list, settings.nul_separated ? '\0' : '\n')) {
    std::fprintf(stderr, "corvi-check: cannot read the list %s: %s\n", settings.list.c_str(),
                 ErrorText(errno).c_str());
    return 2;
  }
  NameSource source(settings.names, settings.has_list ? &list : nullptr);
  const uint32_t jobs = settings.jobs != 0 ? settings.jobs : std::min(UsableCpuCount(), kWindow);

  Output output(settings.format == Format::kJson);
  if (settings.format == Format::kCsv) {
    output.Write(ReportCsvHeader());
  }
  std::array<uint64_t, 5> counts = {};  // by verdict
  uint64_t files = 0;
  bool unreadable = false;
  bool failing = false;
  OrderedChecks checks(source, settings);
  const bool ran = checks.Run(jobs, [&](const Outcome& outcome) {
    output.Write(outcome.text);
    ++files;
    ++counts[static_cast<size_t>(outcome.verdict)];
    unreadable = unreadable || outcome.unreadable;
    failing = failing || (settings.strict ? outcome.verdict != Verdict::kClean
                                          : outcome.verdict >= Verdict::kDamaged);
  });
  output.Flush();
  if (!ran) {
    std::fprintf(stderr, "corvi-check: cannot start a thread\n");
    return 2;
  }
  if (settings.format == Format::kText) {
    std::string line =
        "corvi-check: " + std::to_string(files) + (files == 1 ? " file:" : " files:");
    for (size_t v = 0; v < counts.size(); ++v) {
      line += (v == 0 ? " " : ", ") + std::to_string(counts[v]) + " " +
              VerdictName(static_cast<Verdict>(v));
    }
    std::fprintf(stderr, "%s\n", line.c_str());
  }
  if (list.error != 0) {
    std::fprintf(stderr, "corvi-check: cannot read the list %s: %s\n", settings.list.c_str(),
                 ErrorText(list.error).c_str());
    return 2;
  }
  if (output.error != 0) {
    std::fprintf(stderr, "corvi-check: cannot write the output: %s\n",
                 ErrorText(output.error).c_str());
    return 2;
  }
  return unreadable ? 2 : failing ? 1 : 0;
}

}  // namespace corvi
