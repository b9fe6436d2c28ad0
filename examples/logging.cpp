// The console logger: install, log from any thread, let the last lines out, uninstall.
#include <chrono>
#include <thread>

#include "oxu/CApi.h"

int main() {
  install_log_task();
  push_log(oxu::INFO, "the logger's level is %d, and filters nothing", get_log_level());

  std::thread worker([] { push_log(oxu::WARNING, "any thread may log, %d%% without a lock", 100); });
  worker.join();

  // Up to 127 records wait for the console; one more is refused, and may be tried again.
  for (int i = 1; i <= 300; ++i) {
    while (!push_log(oxu::DEBUG, "record %d of 300", i)) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }

  // What still waits when the logger is uninstalled is discarded, so the last records are given a moment.
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  uninstall_log_task();
  return push_log(oxu::ERROR, "nobody prints this") ? 1 : 0;
}
