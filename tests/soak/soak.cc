// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file soak.cc
  A plug-in that reads for minutes while everything else goes wrong:

    CREATE FUNCTION morvena_soak RETURNS STRING SONAME 'morvena_soak.so';
    SELECT morvena_soak('seconds=600 seed=7');        the closing table
    SELECT morvena_soak('background seconds=600');    'started'

  When the server shuts down it ends its threads first. With the word 'careless'
  it has nobody tell it of the shutdown: its cursors are taken away from it, and
  it ends its threads when it is unloaded.
*/

#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <vector>

#include "common.h"
#include "common/pool.h"
#include "cursor.h"
#include "my_thread.h"
#include "mysql/plugin.h"
#include "process.h"
#include "tables.h"
#include "threads.h"
#include "udf_text.h"

namespace soak {
namespace {

std::mutex mu;
bool stopping = false;           // under mu
std::shared_ptr<World> running;  // under mu
std::thread background;          // under mu
std::mutex ended;                // held while a run is under way

void *plugin_handle;

/** How to run. */
struct Manners {
  bool in_background = false;
  bool careless = false;
};

Settings parse(const std::string &text, Manners *manners) {
  Settings settings;
  std::istringstream words(text);
  for (std::string word; words >> word;) {
    const size_t equals = word.find('=');
    const std::string name = word.substr(0, equals);
    if (name == "background") manners->in_background = true;
    if (name == "careless") manners->careless = true;
    if (name == "unbuilt") settings.builds_indexes = false;
    if (equals == std::string::npos) continue;
    const auto value =
        static_cast<uint32_t>(std::stoul(word.substr(equals + 1)));
    if (name == "seconds") settings.seconds = value;
    if (name == "seed") settings.seed = value;
    if (name == "readers") settings.readers = value;
    if (name == "writers") settings.writers = value;
  }
  return settings;
}

size_t memory_mb() { return harness::memory_in_use() / 1024; }

std::thread on_thread(std::function<void()> f) {
  return std::thread([f] {
    my_thread_init();
    f();
    my_thread_end();
  });
}

// How often a run looks at its memory.
constexpr uint32_t n_parts = 6;

std::string closing_table(const World &world,
                          const std::vector<size_t> &memory) {
  std::ostringstream text;
  text << "soak: " << world.settings.seconds << " seconds, seed "
       << world.settings.seed << ", " << world.settings.readers << " readers, "
       << world.settings.writers << " writers\n"
       << world.tally.table() << "sessions left "
       << CommonApi::sessions_in_use() << "\nthreads left "
       << ThreadBudget::s_active_threads << "\nmemory";
  for (const size_t mb : memory) text << ' ' << mb;
  text << " MB, in equal times\n";
  return text.str();
}

std::string run(World &world) {
  const std::lock_guard<std::mutex> lock(ended);
  make_tables();
  std::vector<size_t> memory{memory_mb()};
  std::vector<std::thread> threads;
  for (uint32_t i = 0; i < world.settings.readers; ++i)
    threads.push_back(on_thread([&world, i] { run_reader(world, i); }));
  for (uint32_t i = 0; i < world.settings.writers; ++i)
    threads.push_back(on_thread([&world, i] { run_writer(world, i); }));
  threads.push_back(on_thread([&world] { run_definer(world); }));
  threads.push_back(on_thread([&world] { run_killer(world); }));
  for (uint32_t part = 0; part < n_parts; ++part) {
    world.pause(world.settings.seconds * 1000 / n_parts);
    memory.push_back(memory_mb());
  }
  world.stop = true;
  for (std::thread &thread : threads) thread.join();
  return closing_table(world, memory);
}

void end_threads() {
  std::thread thread;
  {
    const std::lock_guard<std::mutex> lock(mu);
    stopping = true;
    if (running) running->stop = true;
    thread = std::move(background);
  }
  if (thread.joinable()) thread.join();
  const std::lock_guard<std::mutex> lock(ended);
}

// While this runs the server still serves what the threads wait for.
void clean_up() {
  end_threads();
  deinit_common();
}

std::string guarded_run(const std::shared_ptr<World> &world) {
  try {
    return run(*world);
  } catch (const std::exception &error) {
    return std::string("soak: ") + error.what() + "\n";
  }
}

std::string start(const std::string &text) {
  Manners manners;
  auto world = std::make_shared<World>();
  world->settings = parse(text, &manners);
  {
    const std::lock_guard<std::mutex> lock(mu);
    if (stopping || background.joinable()) return "soak: not now\n";
    running = world;
    // Begin only once, because clean_up() ends it only once.
    static const bool started = (init_common(), true);
    (void)started;
    if (!manners.careless) register_shutdown_observer(plugin_handle, clean_up);
    if (manners.in_background) {
      background = on_thread([world] {
        fprintf(stderr, "%s", guarded_run(world).c_str());
        fflush(stderr);
      });
      return "started";
    }
  }
  return guarded_run(world);
}

int at_load(void *plugin) {
  plugin_handle = plugin;
  return 0;
}

int at_unload(void *) {
  end_threads();
  return 0;
}

st_mysql_daemon descriptor = {MYSQL_DAEMON_INTERFACE_VERSION};

}  // namespace
}  // namespace soak

extern "C" {

bool morvena_soak_init(UDF_INIT *init, UDF_ARGS *args, char *message) {
  return harness::start_text_function(init, args, message);
}

void morvena_soak_deinit(UDF_INIT *init) { harness::end_text_function(init); }

char *morvena_soak(UDF_INIT *init, UDF_ARGS *args, char *,
                   unsigned long *length, unsigned char *, unsigned char *) {
  return harness::answer(init, soak::start(harness::argument(args)), length);
}

}  // extern "C"

mysql_declare_plugin(morvena_soak){
    MYSQL_DAEMON_PLUGIN,
    &soak::descriptor,
    "morvena_soak",
    "the morvena_sn authors",
    "Reads under load, faults and misuse",
    PLUGIN_LICENSE_GPL,
    soak::at_load,
    nullptr,  // check_uninstall
    soak::at_unload,
    0x0100,
    nullptr,  // status variables
    nullptr,  // system variables
    nullptr,
    PLUGIN_OPT_NO_UNINSTALL,
} mysql_declare_plugin_end;
