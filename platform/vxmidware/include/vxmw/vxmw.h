// The platform middleware: attaching a process, its event loop, fault records and the trace
// service.
//
// One process attaches once. Everything here belongs to the thread that attached, but for
// vxmw_gen_fault and vxmw_print_backtrace, which any thread may call at any time.

#ifndef VXMW_VXMW_H_
#define VXMW_VXMW_H_

#include <stdbool.h>

#pragma GCC visibility push(default)

#ifdef __cplusplus
extern "C" {
#endif

typedef struct vxmw_handle vxmw_t;
typedef struct zlog_category_s zlog_category_t;

// Attaches this process under `application`. From here to vxmw_finish SIGTERM, SIGINT and SIGHUP
// wait for the loop; SIGPIPE and SIGXFSZ are ignored. Returns the handle, or null with the reason
// on standard error (no name, already attached, or the event loop cannot be made). The caller
// releases it with vxmw_finish.
vxmw_t* vxmw_init(const char* application);

// Runs the event loop on the calling thread while `*go_on` is true. `timeout` is the longest single
// wait in milliseconds before `*go_on` is looked at again; 0 waits for events alone. Returns 0 when
// SIGTERM or SIGINT ended the loop or `*go_on` became false, a negative errno when the loop failed
// or `mw` or `go_on` is null.
// SIGHUP reloads the trace configuration. Tells the service manager about readiness and keeps its
// watchdog fed, where there is one.
// An exception that left an event callback of this loop is rethrown from here.
int vxmw_loop_while_timeout(vxmw_t* mw, bool* go_on, int timeout);

// Releases the handle and sets `*mw` to null; does nothing without one. Every event source made
// with it must be gone. A signal that waited for the loop is dropped.
void vxmw_finish(vxmw_t** mw);

// Prints the calling thread's stack to standard error.
void vxmw_print_backtrace(void);

// Raises a fault record: one JSON object on a line of its own, appended to faults.jsonl in the
// directory that VXMW_STATE_DIR names (/var/lib/dhcp-relay if unset), and one message to the syslog
// socket that VXMW_SYSLOG_SOCKET names (/dev/log if unset). The file is bounded: past 1 MiB it
// becomes faults.jsonl.1. Several processes may share it, under different users: those that may
// write the directory. Severity 0 is an error, 1 and above are critical.
//
// A fault that cannot be written to the file goes to standard error, the reason once until it
// changes. Raising one never fails, and waits for no other process: neither for one that is stopped
// while it raises a fault nor for the reader of the syslog socket or of standard error; what either
// cannot take at once is not sent there. Works before vxmw_init, too.
void vxmw_gen_fault(int severity, const char* function, const char* source_path, int line,
                    const char* text);

// Starts the trace service of this process: zlog with the configuration file that VXMW_TRACE_CONF
// names, else the installed one, else one built in (level 12 and above to standard error). The
// levels are TRACE (10) and ERR (12). Returns non-zero; or 0 when `mw` or `application` is null, or
// when the file cannot be used: standard error then says so, and the one built in takes its place,
// so that errors are seen. Returns 0 with zlog not running when there is no memory for it. A second
// call changes nothing.
int vxmw_trace_init(vxmw_t* mw, const char* application);

// The zlog category `name`, valid until the process ends; the one of the application where zlog
// refuses the name (null, or longer than 1,024 bytes). Null only while the trace service does not
// run: zlog ignores lines of a null category until then, and crashes on them from then on.
zlog_category_t* vxmw_trace_register_category(const char* name);

#ifdef __cplusplus
}
#endif

#pragma GCC visibility pop

#endif  // VXMW_VXMW_H_
