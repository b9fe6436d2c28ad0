/* The logger from a C host. */
#include <stdio.h>

#include "oxu/CApi.h"

int main(void) {
  install_log_task();
  set_log_level(1);
  /* The level filters nothing by itself: the host compares. 1 is DEBUG, as in oxu/LogLevel.h. */
  if (get_log_level() <= 1) push_log(1, "process %d logs from C", getPid());
  if (!push_log(2, "%s", "text from outside is an argument, never the format")) fputs("the ring was full\n", stderr);

  /* What still waits when the logger is uninstalled is discarded. */
  const bool is_printed = flush_log(1000);
  uninstall_log_task();
  return is_printed ? 0 : 1;
}
