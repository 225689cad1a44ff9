// Reading the configuration database (CDB).
//
// `sock` is an open read session: one consistent snapshot of the database. Every path is a printf
// format with its arguments; %s, %d, %i, %u, %x and %% are understood and anything else is refused.
// Paths are absolute: /a/b{key}/c, a list entry by position b[3], an optional module prefix at any
// node (m:b).
//
// All calls return CONFD_ERR on failure, with confd_errno and confd_lasterr() set, and leave their
// results untouched then. A leaf that is not there is CONFD_ERR_NOEXISTS, of another type
// CONFD_ERR_BADTYPE, a path that the schema does not know CONFD_ERR_BADPATH, a session that is not
// open CONFD_ERR_NOSESSION.

#ifndef CONFD_CDB_H_
#define CONFD_CDB_H_

#include <confd_lib.h>

#pragma GCC visibility push(default)

#ifdef __cplusplus
extern "C" {
#endif

enum cdb_db_type {
  CDB_RUNNING = 1,
  CDB_STARTUP = 2,
  CDB_OPERATIONAL = 3,
};

// Number of entries of a list.
int cdb_num_instances(int sock, const char* fmt, ...);

// 1 when the node exists (a leaf with a default counts), 0 when not.
int cdb_exists(int sock, const char* fmt, ...);

// A leaf's value, or its default. The caller releases it with confd_free_value.
int cdb_get(int sock, confd_value_t* value, const char* fmt, ...);

// A string leaf, NUL-terminated; one that does not fit `size` bytes is an error, never cut.
int cdb_get_str(int sock, char* value, int size, const char* fmt, ...);

int cdb_get_int32(int sock, int32_t* value, const char* fmt, ...);

int cdb_get_ipv4_and_plen(int sock, struct confd_ipv4_prefix* value, const char* fmt, ...);

// The children of a container or list entry, depth first in schema order: a leaf its value, its
// default, or C_NOEXISTS; a container one C_XMLTAG followed by its children; a list inside one
// C_NOEXISTS, whatever it holds; a leaf-list one C_LIST. Stores the first `n` values and returns
// how many the whole object has. The caller releases the stored values with confd_free_value.
int cdb_get_object(int sock, confd_value_t* values, int n, const char* fmt, ...);

// The same for `nobj` entries of a list from position `ix` (0 is the first), `n` values each: the
// values of entry i start at values[i * n]. Entries past the end of the list are an error.
int cdb_get_objects(int sock, confd_value_t* values, int n, int ix, int nobj, const char* fmt, ...);

#ifdef __cplusplus
}
#endif

#pragma GCC visibility pop

#endif  // CONFD_CDB_H_
