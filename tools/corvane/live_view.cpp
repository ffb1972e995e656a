// `corvane` alone in a terminal: the sensors and fans, kept current. While a daemon writes the
// store the view follows its announcements; when none does, it reads the machine itself at the
// update interval. It never writes the store either way.
//
// The main queue is the only loop: its timer drives the readings, and a small thread that blocks
// on the terminal (and on a pipe fed by signal handlers) hands each key press, resize or quit to
// it, so an idle view sleeps until something happens.
#include <curses.h>
#include <fcntl.h>
#include <langinfo.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <clocale>
#include <cmath>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "commands.h"
#include "corvane/dispatch/dispatch.h"
#include "corvane/monitors/cpu_monitor.h"
#include "corvane/platform/platform.h"
#include "corvane/platform/processor_load.h"
#include "corvane/sensors/host_sensors.h"
#include "corvane/settings/data_manager.h"
#include "corvane/settings/settings_data_store.h"
#include "corvane/smc/fan_keys.h"
#include "corvane/sysinfo/system_device.h"
#include "graph_data.h"
#include "live_model.h"

namespace corvane::cli {
namespace {

using live::Row;
using live::SensorInput;

// ---- signals: each becomes one byte on a pipe the input thread waits on ----

int gSignalPipe[2] = {-1, -1};
struct sigaction gPreviousWinch {};

void writeSignalByte(char byte) {
  const int saved = errno;
  [[maybe_unused]] const auto written = ::write(gSignalPipe[1], &byte, 1);
  errno = saved;
}

extern "C" void onResizeSignal(int signal, siginfo_t* info, void* context) {
  // The terminal library keeps its own resize handler; it still runs, so the next key read
  // reports the new size.
  if (gPreviousWinch.sa_flags & SA_SIGINFO) {
    if (gPreviousWinch.sa_sigaction) gPreviousWinch.sa_sigaction(signal, info, context);
  } else if (gPreviousWinch.sa_handler != SIG_DFL && gPreviousWinch.sa_handler != SIG_IGN) {
    gPreviousWinch.sa_handler(signal);
  }
  writeSignalByte('r');
}

extern "C" void onQuitSignal(int) { writeSignalByte('q'); }

void installQuitHandlers() {
  struct sigaction action {};
  action.sa_handler = onQuitSignal;
  sigemptyset(&action.sa_mask);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaction(signal, &action, nullptr);
}

void installResizeHandler() {
  struct sigaction action {};
  action.sa_sigaction = onResizeSignal;
  action.sa_flags = SA_SIGINFO | SA_RESTART;
  sigemptyset(&action.sa_mask);
  sigaction(SIGWINCH, &action, &gPreviousWinch);
}

void restoreSignals() {
  sigaction(SIGWINCH, &gPreviousWinch, nullptr);
  struct sigaction standard {};
  standard.sa_handler = SIG_DFL;
  sigemptyset(&standard.sa_mask);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaction(signal, &standard, nullptr);
}

// ---- layout ----

// Terminal columns of UTF-8 text (one per character; the texts shown have no double-width ones).
int columnsOf(const std::string& text) {
  return static_cast<int>(std::count_if(text.begin(), text.end(), [](char c) { return (c & 0xC0) != 0x80; }));
}

// `text` cut or padded to `width` columns.
std::string cell(const std::string& text, int width, bool alignRight = false) {
  std::string out;
  int used = 0;
  for (std::size_t i = 0; i < text.size();) {
    std::size_t length = 1;
    while (i + length < text.size() && (text[i + length] & 0xC0) == 0x80) ++length;
    if (used == width) break;
    out.append(text, i, length);
    ++used;
    i += length;
  }
  const std::string padding(static_cast<std::size_t>(std::max(0, width - used)), ' ');
  return alignRight ? padding + out : out + padding;
}

// ---- the view ----

class LiveView final : public HWSensorDataStoreDelegate,
                       public HWSensorReader::Delegate,
                       public HWCPUMonitorDelegate,
                       public std::enable_shared_from_this<LiveView> {
 public:
  LiveView(std::shared_ptr<HWDataManager> manager, bool blocks)
      : manager_(std::move(manager)), reader_(manager_->sensorReader()), blocks_(blocks),
        interval_(std::max<std::int64_t>(1, manager_->settingsDataStore()->updateInterval())) {
    static constexpr const char* kNames[] = {"Temperature", "Fan", "Voltage", "Current", "Power"};
    for (std::int16_t type = 0; type < 5; ++type) {
      categories_[type] = std::make_shared<HWSensorCategoryEntity>();
      categories_[type]->setName(kNames[type]);
      categories_[type]->setType(type);
    }
    if (const auto& machine = platform::current().machine()) machineName_ = machine->name;
    platform::ProcessorTickSample probe;
    cpu_.recorded = platform::ProcessorLoad::create(platform::current())->sample(probe);
    cpu_.cores = HWSystemDevice::device()->cpuInfo().coreList();
  }

  void start() {
    const auto& store = manager_->sensorDataStore();
    reader_->setShowUnknownSensors(store->showUnknownSensors());
    reader_->setShowHIDSensors(store->showHIDSensors());
    reader_->setShowComputedSensors(store->showComputedSensors());
    reader_->setDelegate(std::shared_ptr<HWSensorReader::Delegate>(shared_from_this()));
    store->addDelegate(shared_from_this());
    timer_ = dispatch::makeTimer(dispatch::mainQueue());
    std::weak_ptr<LiveView> weak = shared_from_this();
    timer_->setHandler([weak] {
      if (auto self = weak.lock()) self->tick();
    });
    timer_->schedule(std::chrono::nanoseconds(0), std::chrono::seconds(interval_), std::chrono::milliseconds(250));
    timer_->resume();
    // A machine without processor ticks has nothing for the CPU monitor to read.
    if (cpu_.recorded) {
      cpuMonitor_ = HWCPUMonitor::create(manager_);
      cpuMonitor_->addDelegate(shared_from_this());
      cpuMonitor_->setup();
      cpuMonitor_->start();
    }
    draw();
  }

  void stop() {
    if (cpuMonitor_) cpuMonitor_->stop();
    if (timer_) timer_->cancel();
    reader_->setDelegate(nullptr);
  }

  // Keys waiting on the terminal, a resize or a quit: handled on the main queue.
  void wake(bool input, bool resized, bool quit) {
    if (resized) redrawPending_ = true;
    while (input) {
      const int key = getch();
      if (key == ERR) break;
      handleKey(key);
    }
    if (quit || quitting_) {
      quitting_ = true;
      dispatch::stopMainQueue();
      return;
    }
    if (redrawPending_) {
      redrawPending_ = false;
      draw();
    }
  }

  void readerDidReadWithResult(HWBaseReader<HWSensorReader::SensorList>&,
                               const HWSensorReader::SensorList& list) override {
    if (following_) return;
    const double now = dispatch::now();
    std::vector<SensorInput> inputs;
    for (const auto& record : list) {
      if (!reader_->shouldRefresh(*record)) continue;
      if (auto input = track(*record, now)) inputs.push_back(std::move(*input));
    }
    inputs_ = std::move(inputs);
    draw();
  }

  void cpuMonitorDidReadLoadInfo(const HWCPULoadInfo& info) override {
    cpu_.load = info;
    cpu_.series = cpuMonitor_->loadInfoItems();
    draw();
  }
  void cpuMonitorDidReadTopProcesses(const std::vector<HWCPUProcess>& processes) override {
    cpu_.processes = processes;
    draw();
  }
  void cpuMonitorDidReadLoadAverage(const HWLoadAverages& values) override {
    cpu_.averages = values;
    draw();
  }

  void sensorDataStoreSensorsDidChanged(const std::vector<std::shared_ptr<HWSensorEntity>>&) override {
    const double now = dispatch::now();
    following_ = true;
    lastAnnouncement_ = now;
    // Hour points are stored every few readings, not at each one: fetching them every ten
    // seconds keeps following a daemon cheap.
    const bool fetchHistory = now - lastHistoryFetch_ >= kHistoryRefetchSeconds;
    if (fetchHistory) lastHistoryFetch_ = now;
    std::vector<SensorInput> inputs;
    for (const auto& category : manager_->sensorDataStore()->allCategories()) {
      for (const auto& sensor : category->filterSensors()) {
        auto& history = storedHistory_[sensor->key()];
        if (fetchHistory) {
          history = storedHour(*sensor, now);
        }
        inputs.push_back({sensor, history, fanMode(*sensor)});
      }
    }
    inputs_ = std::move(inputs);
    draw();
  }

 private:
  struct Own {
    std::shared_ptr<HWSensorEntity> sensor;
    std::vector<GraphSample> history;
  };
  static constexpr double kHistoryRefetchSeconds = 10;
  static constexpr double kTrimSeconds = 300;

  // The hour points the daemon stored, moved to end at `now` when the store runs ahead of this
  // clock (a store filled on a simulated clock), so its last hour still shows.
  static std::vector<GraphSample> storedHour(const HWSensorEntity& sensor, double now) {
    const auto date = dates::Date(std::chrono::duration_cast<dates::Date::duration>(std::chrono::duration<double>(now)));
    auto samples = graphDataForSensor(sensor, HWTimeRange::kHour, date).samples;
    const double ahead = samples.empty() ? 0 : samples.back().time - now;
    if (ahead > 0) {
      for (auto& sample : samples) sample.time -= ahead;
    }
    return samples;
  }

  // The view's own record of `record`: its extremes and hour of readings, kept across passes.
  std::optional<SensorInput> track(const HWSensor& record, double now) {
    const auto type = static_cast<std::int16_t>(toNumber(record.type()));
    if (type < 0 || type > 4) return std::nullopt;
    Own& own = own_[record.key()];
    if (!own.sensor) {
      own.sensor = std::make_shared<HWSensorEntity>();
      own.sensor->setKey(record.key());
      own.sensor->setCategory(categories_[type]);
    }
    own.sensor->updateFromSensor(record, type == 1);
    const double value = record.value();
    if (std::isfinite(value)) {
      if (value > own.sensor->recordedMaxValue()) own.sensor->setRecordedMaxValue(value);
      if (value < own.sensor->recordedMinValue()) own.sensor->setRecordedMinValue(value);
      own.history.push_back({now, value});
    }
    // Readings older than the hour go in batches, so a tick rarely moves the history.
    const double hourAgo = now - 3600;
    if (!own.history.empty() && own.history.front().time <= hourAgo - kTrimSeconds) {
      own.history.erase(own.history.begin(),
                        std::find_if(own.history.begin(), own.history.end(),
                                     [hourAgo](const GraphSample& reading) { return reading.time > hourAgo; }));
    }
    return SensorInput{own.sensor, own.history, fanMode(*own.sensor)};
  }

  // This computer's own monitors: no daemon stores them, so the view reads them itself, whether
  // it follows a daemon or not. Host keys ("chip/input") never meet an SMC key in `own_`.
  void readHost() {
    std::vector<std::shared_ptr<HWSensor>> records;
    std::string error;
    readHostSensors(records, error);
    if (records.empty() && hostInputs_.empty()) return;
    const double now = dispatch::now();
    std::vector<SensorInput> inputs;
    for (const auto& record : records) {
      if (auto input = track(*record, now)) {
        input->host = true;
        inputs.push_back(std::move(*input));
      }
    }
    hostInputs_ = std::move(inputs);
    // Reading the machine itself, the view draws when the reader delivers, right after this.
    if (following_) draw();
  }

  void tick() {
    readHost();
    // A daemon that has gone quiet for three intervals is taken to have stopped.
    if (following_ && dispatch::now() - lastAnnouncement_ > 3.0 * static_cast<double>(interval_)) {
      following_ = false;
      draw();
    }
    if (!following_) reader_->read();
  }

  std::string fanMode(const HWSensorEntity& sensor) const {
    if (sensor.categoryTypeNumber() != 1) return {};
    // Only the SMC's fans have a mode (computed ones are figures, host ones are not ours to drive).
    if (sensor.sourceType() != static_cast<std::int16_t>(toNumber(SourceType::kSMC))) return {};
    const auto index = std::strtoull(sensor.key().c_str(), nullptr, 10);
    if (index >= smc::kFanCharacters.size()) return "-";
    const auto& smc = reader_->smc();
    const std::string modeKey = std::string("F") + smc::kFanCharacters[index] + "Md";
    const auto mode = smc->rawValueByKey(modeKey);
    return live::fanModeText(mode, mode ? std::nullopt : smc->rawValueByKey("FS! "), index);
  }

  void handleKey(int key) {
    const int page = std::max(1, LINES - kHeaderLines);
    switch (key) {
      case 'q':
      case 'Q': quitting_ = true; break;
      case KEY_UP: scroll_ -= 1; break;
      case KEY_DOWN: scroll_ += 1; break;
      case KEY_PPAGE: scroll_ -= page; break;
      case KEY_NPAGE: scroll_ += page; break;
      case KEY_HOME: scroll_ = 0; break;
      case KEY_END: scroll_ = 1 << 20; break;
      case KEY_RESIZE: break;
      default: return;
    }
    redrawPending_ = true;
  }

  static constexpr int kHeaderLines = 2;

  void draw() {
    // Widths follow the content, so the sparkline takes whatever the terminal has left.
    std::vector<SensorInput> shown = inputs_;
    shown.insert(shown.end(), hostInputs_.begin(), hostInputs_.end());
    int nameWidth = 4;
    int kKey = 10;  // an SMC key's four characters, or a computed figure's name
    bool fans = false;
    for (const auto& input : shown) {
      nameWidth = std::max(nameWidth, columnsOf(input.sensor->name()));
      if (input.host) kKey = std::max(kKey, columnsOf(input.sensor->key()));
      fans = fans || !input.fanMode.empty();
    }
    nameWidth = std::min(nameWidth, 24);
    kKey = std::min(kKey, 32);
    constexpr int kNumber = 9, kStatus = 10, kMode = 6;
    const int fixed = 2 + nameWidth + 1 + kKey + 1 + kNumber + 1 + kStatus + 1 + 2 * (kNumber + 1) +
                      (fans ? kMode + 1 : 0);
    const int sparkWidth = std::clamp(COLS - fixed, 0, 60);
    const auto& glyphs = blocks_ ? live::kBlocks : live::kAsciiLevels;
    const auto rows = live::buildRows(shown, dispatch::now(), sparkWidth, glyphs);
    // The CPU panel takes at most half the screen; the sensors scroll below it.
    const int processLines = std::clamp(LINES / 4, 0, 12);
    auto panel = live::cpuPanel(cpu_, dispatch::now(), COLS, processLines, glyphs);
    panel.resize(std::min(panel.size(), static_cast<std::size_t>(std::max(0, LINES / 2))));
    const int top = 1 + static_cast<int>(panel.size());

    const int body = std::max(0, LINES - top - 1);
    scroll_ = std::clamp(scroll_, 0, std::max(0, static_cast<int>(rows.size()) - body));

    erase();
    std::string title = "corvane";
    if (!machineName_.empty()) title += " - " + machineName_;
    title += following_ ? " - following the daemon" : " - reading every " + std::to_string(interval_) + " s";
    title += " - arrows/PgUp/PgDn scroll, q quits";
    attron(A_REVERSE);
    mvaddstr(0, 0, cell(title, COLS).c_str());
    attroff(A_REVERSE);
    for (std::size_t i = 0; i < panel.size(); ++i) {
      if (panel[i].heading) attron(A_BOLD);
      mvaddstr(1 + static_cast<int>(i), 0, cell(panel[i].text, COLS).c_str());
      if (panel[i].heading) attroff(A_BOLD);
    }
    std::string columns = "  " + cell("Sensor", nameWidth) + " " + cell("Key", kKey) + " " +
                          cell("Value", kNumber, true) + " " + cell("Status", kStatus) + " " +
                          cell("Min", kNumber, true) + " " + cell("Max", kNumber, true) + " ";
    if (fans) columns += cell("Mode", kMode) + " ";
    if (sparkWidth > 0) columns += "Last hour";
    attron(A_BOLD);
    mvaddstr(top, 0, cell(columns, COLS).c_str());
    attroff(A_BOLD);
    if (rows.empty()) mvaddstr(top + 1, 2, "Reading the sensors...");
    for (int line = 0; line < body && scroll_ + line < static_cast<int>(rows.size()); ++line) {
      const Row& row = rows[static_cast<std::size_t>(scroll_ + line)];
      if (row.kind != Row::Kind::kSensor) {
        const attr_t look = row.kind == Row::Kind::kGroup ? A_REVERSE : A_BOLD;
        attron(look);
        mvaddstr(top + 1 + line, 0, cell(row.name, COLS).c_str());
        attroff(look);
        continue;
      }
      std::string text = "  " + cell(row.name, nameWidth) + " " + cell(row.key, kKey) + " " +
                         cell(row.value, kNumber, true) + " " + cell(row.status, kStatus) + " " +
                         cell(row.minimum, kNumber, true) + " " + cell(row.maximum, kNumber, true) + " ";
      if (fans) text += cell(row.fanMode, kMode) + " ";
      text += row.sparkline;
      mvaddstr(top + 1 + line, 0, cell(text, COLS).c_str());
    }
    refresh();
  }

  std::shared_ptr<HWDataManager> manager_;
  std::shared_ptr<HWSensorReader> reader_;
  bool blocks_;
  std::int64_t interval_;
  std::string machineName_;
  std::shared_ptr<HWSensorCategoryEntity> categories_[5];
  std::map<std::string, Own> own_;
  std::map<std::string, std::vector<GraphSample>> storedHistory_;
  std::vector<SensorInput> inputs_;
  std::vector<SensorInput> hostInputs_;
  std::shared_ptr<dispatch::TimerSource> timer_;
  std::shared_ptr<HWCPUMonitor> cpuMonitor_;
  live::CpuInput cpu_;
  bool following_ = false;
  double lastAnnouncement_ = 0;
  double lastHistoryFetch_ = -1e18;
  int scroll_ = 0;
  bool redrawPending_ = false;
  bool quitting_ = false;
};

// Blocks on the terminal and the signal pipe; hands each wake-up to the main queue and waits
// until it was handled, so keys are read there and only there.
class InputThread {
 public:
  explicit InputThread(std::shared_ptr<LiveView> view) : view_(std::move(view)), thread_([this] { run(); }) {}
  ~InputThread() {
    {
      std::lock_guard guard(lock_);
      done_ = true;
    }
    handled_.notify_all();
    writeSignalByte('x');
    thread_.join();
  }

 private:
  void run() {
    for (;;) {
      pollfd fds[2] = {{STDIN_FILENO, POLLIN, 0}, {gSignalPipe[0], POLLIN, 0}};
      if (::poll(fds, 2, -1) < 0) {
        if (errno == EINTR) continue;
        return;
      }
      bool resized = false;
      bool quit = (fds[0].revents & (POLLHUP | POLLERR | POLLNVAL)) != 0;
      if (fds[1].revents & POLLIN) {
        char bytes[64];
        ssize_t count;
        while ((count = ::read(gSignalPipe[0], bytes, sizeof bytes)) > 0) {
          for (ssize_t i = 0; i < count; ++i) {
            resized = resized || bytes[i] == 'r';
            quit = quit || bytes[i] == 'q';
          }
        }
      }
      {
        std::lock_guard guard(lock_);
        if (done_) return;
        pending_ = true;
      }
      const bool input = (fds[0].revents & POLLIN) != 0;
      dispatch::mainQueue()->async([this, input, resized, quit] {
        view_->wake(input, resized, quit);
        {
          std::lock_guard guard(lock_);
          pending_ = false;
        }
        handled_.notify_all();
      });
      std::unique_lock guard(lock_);
      handled_.wait(guard, [this] { return !pending_ || done_; });
      if (done_ || quit) return;
    }
  }

  std::shared_ptr<LiveView> view_;
  std::mutex lock_;
  std::condition_variable handled_;
  bool pending_ = false;
  bool done_ = false;
  std::thread thread_;
};

}  // namespace

int runLiveView(Context& context) {
  if (!context.installPlatform()) return context.exitCode;
  // The view reads; app mode 1 belongs to the process that writes the store.
  if (HWDataManager::appMode() == 1) HWDataManager::setAppMode(0);
  auto manager = HWDataManager::shared();
  settings::installUnitPreferencesHook(manager->prefData());

  std::setlocale(LC_CTYPE, "");
  const bool blocks = std::strcmp(nl_langinfo(CODESET), "UTF-8") == 0;
  if (::pipe2(gSignalPipe, O_CLOEXEC | O_NONBLOCK) != 0) {
    std::fprintf(stderr, "corvane: cannot start the live view: %s\n", std::strerror(errno));
    return kExitFailure;
  }
  // Before the terminal library starts, so it leaves these signals to the view.
  installQuitHandlers();
  SCREEN* screen = newterm(nullptr, stdout, stdin);
  if (!screen) {
    restoreSignals();
    std::fprintf(stderr, "corvane: this terminal cannot show the live view (TERM=%s)\n",
                 std::getenv("TERM") ? std::getenv("TERM") : "");
    return kExitFailure;
  }
  cbreak();
  noecho();
  keypad(stdscr, TRUE);
  nodelay(stdscr, TRUE);
  curs_set(0);
  installResizeHandler();

  auto view = std::make_shared<LiveView>(manager, blocks);
  view->start();
  {
    InputThread input(view);
    dispatch::runMainQueue();
  }
  view->stop();
  endwin();
  delscreen(screen);
  restoreSignals();
  ::close(gSignalPipe[0]);
  ::close(gSignalPipe[1]);
  return kExitOk;
}

int runDefaultView(Context& context) {
  // Only someone at a terminal gets the live view; pipes and CI get the one listing.
  if (::isatty(STDOUT_FILENO) && ::isatty(STDIN_FILENO)) return runLiveView(context);
  return runSensorListing(context);
}

}  // namespace corvane::cli
