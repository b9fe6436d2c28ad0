// The console logger: install, log from any thread, let the last lines out, uninstall.
#include <unistd.h>

#include <thread>

#include "oxu/CApi.h"

int main() {
  install_log_task();
  if (isatty(STDOUT_FILENO) == 0) set_log_colors(false);
  push_log(oxu::INFO, "the logger's level is %d, and filters nothing", get_log_level());

  std::thread worker([] { push_log(oxu::WARNING, "any thread may log, %d%% without a lock", 100); });
  worker.join();

  // Up to 127 records wait for the console. One more is refused, unless it may wait for room: here up to a second.
  for (int i = 1; i <= 300; ++i) push_log_wait(1000, oxu::DEBUG, "record %d of 300", i);
  push_log_wait(1000, oxu::INFO, "%llu records were refused", get_refused_log_count());

  // What still waits when the logger is uninstalled is discarded, so the last records are let out first.
  const bool isPrinted = flush_log(1000);
  uninstall_log_task();
  return isPrinted ? 0 : 1;
}
