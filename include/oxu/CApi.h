/**
 * The C functions of libOxuTool: the console logger, the caller's process id and, under C++, the frames of the log
 * service.
 *
 * The logger prints on standard output, from one thread of its own, each record in a line:
 *
 *     TAG [YYYY-MM-DD hh:mm:ss.mmm]  MESSAGE
 *
 * The tag is coloured by level. The time is that of the push_log call, in the local time zone. Up to 127 records wait
 * for the console. A further record is refused; only push_log_wait waits for room.
 *
 * | call                  | while not installed | while installed                   |
 * |-----------------------|---------------------|-----------------------------------|
 * | install_log_task      | starts the logger   | no effect                         |
 * | push_log              | false               | true; false for a refused record  |
 * | push_log_wait         | false at once       | the same, after waiting for room  |
 * | flush_log             | false at once       | true once all is printed          |
 * | get_refused_log_count | 0                   | the number of refused records     |
 * | set_log_colors        | no effect           | with or without colours           |
 * | set_log_level         | no effect           | stores the level                  |
 * | get_log_level         | 2                   | the stored level                  |
 * | uninstall_log_task    | no effect           | stops the logger                  |
 *
 * Threads:
 * - install_log_task and uninstall_log_task are called from one thread, while no other thread is in a logger function.
 *   The threads of StartProcess and ProcessMonitor objects log, so no such object exists during either call.
 * - The other logger functions may be called from any thread. They take no lock.
 * - None may be called from a signal handler.
 * - The logger's thread blocks all signals but those that its own faults raise.
 * - The logger's thread reads TZ up to once per second. A host that changes its environment while the logger is
 *   installed races with that, as with any other reader.
 * - A forked child has no printing thread, and a record that another thread was queuing stays unfinished. It calls
 *   none of push_log, push_log_wait, flush_log and uninstall_log_task: they might wait for ever.
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

/** Starts the logger and its thread, with level 2 (INFO) and with colours. Without a thread, nothing is printed. */
OXU_EXPORT void install_log_task(void);

/**
 * Stops the logger. Returns once the record that is being printed is out, however long the console blocks; one that
 * does not block and has no room loses it. Discards the records that still wait: a host calls flush_log before it
 * exits.
 */
OXU_EXPORT void uninstall_log_task(void);

/**
 * Stores the level that get_log_level reports. The level filters nothing: a host that wants to filter compares with
 * get_log_level before it calls push_log.
 */
OXU_EXPORT void set_log_level(int level);

/** The stored level. */
OXU_EXPORT int get_log_level(void);

/**
 * Formats one record as printf does and queues it. `level` is 0 TEST, 1 DEBUG, 2 INFO, 3 WARNING or 4 ERROR; any
 * other value is printed with an empty tag. The logger adds the line feed.
 *
 * Returns true when the record was queued. Otherwise nothing of the message is printed, and the result is false:
 * - the message has 1023 bytes or more, or cannot be formatted;
 * - 127 records wait;
 * - no logger is installed, or the logger found no memory for its ring.
 */
OXU_EXPORT bool push_log(int level, const char* format, ...) __attribute__((format(printf, 2, 3)));

/**
 * The same, but waits up to `milliseconds` for room: 0 does not wait, a negative number waits without a limit. What
 * push_log refuses for another reason than a lack of room is refused at once.
 *
 * The message is formatted and stamped before the wait, so the stamps of printed lines can run backwards by as much as
 * a call has waited. The call has no precedence over push_log: in a ring that others keep full it may find no room.
 */
OXU_EXPORT bool push_log_wait(int milliseconds, int level, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

/**
 * Waits until every record that was accepted before the call has been printed and flushed, and returns true then. A
 * record that could not be written counts as printed.
 *
 * Returns false when `milliseconds` are over. 0 only looks; a negative number waits without a limit, even for a stalled
 * console, so before it exits a host uses a finite time.
 */
OXU_EXPORT bool flush_log(int milliseconds);

/**
 * How many records have been refused for lack of room since the installation, those of the library's own threads
 * included. Messages that are refused for another reason are not counted.
 */
OXU_EXPORT unsigned long long get_refused_log_count(void);

/**
 * With false, lines have no escape sequences. That suits a standard output that is no terminal, such as a service
 * manager's journal. Affects the records that are printed after the call, each line as a whole.
 */
OXU_EXPORT void set_log_colors(bool on);

/** The process id of the calling process, not that of a child. From any thread. */
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
 * Integers are in native byte order.
 *
 * Stores the frame in `*out`; the caller frees it with delete[]. Stores in `*outLength` the value of the frame's first
 * field, which is 4 less than the size of the frame. Stores null and 0 for a name of more than 65535 bytes, for a frame
 * of 2^31 bytes or more, and where memory runs out. From any thread.
 */
OXU_EXPORT void ProtocolToString(int type, const std::string& name, const std::string& body, char** out,
                                 int* outLength);
}
#endif

#endif
