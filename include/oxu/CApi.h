/**
 * The C functions of libOxuTool: the console logger, the caller's process id and, under C++, the frames of the log
 * service.
 *
 * The logger prints on standard output, from one thread of its own, one line a record:
 *
 *     TAG [YYYY-MM-DD hh:mm:ss.mmm]  MESSAGE
 *
 * with the tag coloured by level and the time of the push_log call in the local time zone. It holds up to 127
 * records that wait for the console; a record that finds no room is refused, and only push_log_wait waits.
 *
 * | call                  | while not installed | while installed                   |
 * |-----------------------|---------------------|-----------------------------------|
 * | install_log_task      | starts the logger   | no effect                         |
 * | push_log              | false               | true; false for a refused record  |
 * | push_log_wait         | false at once       | the same, after it has waited     |
 * | flush_log             | false at once       | true once all is printed          |
 * | get_refused_log_count | 0                   | the number of refused records     |
 * | set_log_colors        | no effect           | with or without colours           |
 * | set_log_level         | no effect           | stores the level                  |
 * | get_log_level         | 2                   | the stored level                  |
 * | uninstall_log_task    | no effect           | stops the logger                  |
 *
 * Threads: all but install_log_task and uninstall_log_task may be called from any thread at any time while the logger
 * is installed; they take no lock. None of them may be called from a signal handler. install_log_task and
 * uninstall_log_task are called from one thread while no other thread is in any of them; the threads of StartProcess
 * and ProcessMonitor objects log, so such objects end before the logger does. The logger's thread takes no signals but
 * those of its own faults. It reads TZ once a second: a host that changes its environment while the logger is installed
 * races with that, as with any other reader.
 *
 * A forked child has no printing thread: it must not call push_log, which might wait for a producer that exists
 * only in its parent, nor push_log_wait or flush_log, which might wait for the thread.
 */
#ifndef OXU_CAPI_H
#define OXU_CAPI_H

#include "oxu/Export.h"
#ifdef __cplusplus
#include <string>

#include "oxu/LogLevel.h"
extern "C" {
#else
#include <stdbool.h>
#endif

/** Starts the logger and its thread, with level 2 (INFO) and colours. */
OXU_EXPORT void install_log_task(void);

/**
 * Stops the logger. Returns once the record that is being printed is out, which takes as long as the console
 * blocks; records that still wait are discarded, so a host that ends calls flush_log first.
 */
OXU_EXPORT void uninstall_log_task(void);

/**
 * Stores the level that get_log_level reports. It filters nothing: records of every level are
 * printed, and a host that wants to filter compares with get_log_level before it calls push_log.
 */
OXU_EXPORT void set_log_level(int level);

/** The stored level; 2 (INFO) while no logger is installed. */
OXU_EXPORT int get_log_level(void);

/**
 * Formats one record as printf does and queues it. `level` is 0 TEST, 1 DEBUG, 2 INFO, 3 WARNING or
 * 4 ERROR; any other value is printed with an empty tag. The line feed is added by the logger.
 *
 * Returns true when the record was queued. Returns false, having printed nothing, when the message has 1023
 * bytes or more or cannot be formatted, when no logger is installed, when 127 records wait, and when there was no
 * memory for the logger's ring.
 */
OXU_EXPORT bool push_log(int level, const char* format, ...) __attribute__((format(printf, 2, 3)));

/**
 * push_log that waits for room. Up to `milliseconds` (0 does not wait, a negative number waits without a limit) it
 * tries again while 127 records wait. A message that push_log would refuse for another reason is refused at once. The
 * message is formatted once, and its time stamp is that of the call, so the stamps of lines can run backwards by as
 * much as it has waited. It has no precedence over push_log: in a ring that others keep full it may find no room.
 */
OXU_EXPORT bool push_log_wait(int milliseconds, int level, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

/**
 * Waits until every record that was accepted before the call has been printed and flushed; one that could not be
 * written counts as printed. Returns true then, and false when `milliseconds` are over (0 only looks, a negative number
 * waits without a limit, also for a console that stands still). A host that ends uses a finite time.
 */
OXU_EXPORT bool flush_log(int milliseconds);

/**
 * How many calls of push_log and push_log_wait have returned false since the installation because the ring was full,
 * those of the library's own threads included. Messages that are too long are not counted.
 */
OXU_EXPORT unsigned long long get_refused_log_count(void);

/**
 * With false, lines have no escape sequences: TAG [time]  MESSAGE. Affects the records that are printed after the call,
 * each line wholly. For a standard output that is no terminal, such as a service manager's journal.
 */
OXU_EXPORT void set_log_colors(bool on);

/** The process id of the calling process (not of any child). */
OXU_EXPORT int getPid(void);

#ifdef __cplusplus
/**
 * Packs a message into one frame, the unit that clients send to a log service:
 *
 * | offset         | bytes          | field                                                        |
 * |----------------|----------------|--------------------------------------------------------------|
 * | 0              | 4              | number of bytes after this field: 3 + name length + body size |
 * | 4              | 1              | low byte of `type`                                           |
 * | 5              | 2              | name length                                                  |
 * | 7              | name length    | name                                                         |
 * | 7 + name length | body size     | body                                                         |
 *
 * Integers are in native byte order. Stores in `*out` the frame, which the caller frees with delete[], and in
 * `*outLength` the value of its first field: the frame has 4 bytes more. A name of more than 65535 bytes, a frame of
 * 2^31 bytes or more, and a lack of memory give a null `*out` and 0. From any thread.
 */
OXU_EXPORT void ProtocolToString(int type, const std::string& name, const std::string& body, char** out,
                                 int* outLength);
}
#endif

#endif
