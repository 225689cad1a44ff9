// The part of ConfD's C library that configuration clients of this device use: values, key paths,
// diff-iteration types, and error texts. Names and meaning are the public API's.
//
// Single-threaded: the error state is the process's own.

#ifndef CONFD_LIB_H_
#define CONFD_LIB_H_

#include <assert.h>
#include <netinet/in.h>
#include <stddef.h>
#include <stdint.h>

#pragma GCC visibility push(default)

#ifdef __cplusplus
extern "C" {
#endif

// Results of the calls of this library.
enum {
  CONFD_OK = 0,
  CONFD_ERR = -1,
  CONFD_EOF = -2,
};

// Values of confd_errno after CONFD_ERR.
enum {
  CONFD_ERR_NOEXISTS = 1,
  CONFD_ERR_BADTYPE = 5,
  CONFD_ERR_BADPATH = 8,
  CONFD_ERR_LOCKED = 10,
  CONFD_ERR_MALLOC = 20,
  CONFD_ERR_NOSESSION = 22,
  CONFD_ERR_OS = 24,
  CONFD_ERR_UNAVAILABLE = 44,
};

// Programs are built with these numbers: new types go to the end.
enum confd_vtype {
  C_NOEXISTS = 1,
  C_XMLTAG,
  C_BUF,
  C_INT32,
  C_UINT32,
  C_IPV4,
  C_BOOL,
  C_ENUM_VALUE,
  C_LIST,
  C_IPV4_AND_PLEN,
  C_INT8,
  C_INT16,
  C_INT64,
  C_UINT8,
  C_UINT16,
  C_UINT64,
};

struct xml_tag {
  uint32_t tag;
  uint32_t ns;
};

// `ptr` holds `size` bytes and a NUL behind them. Not to be changed: values may share them.
typedef struct confd_buf {
  unsigned int size;
  unsigned char* ptr;
} confd_buf_t;

struct confd_ipv4_prefix {
  struct in_addr ip;
  uint8_t len;
};

struct confd_list {
  unsigned int size;
  struct confd_value* ptr;
};

typedef struct confd_value {
  enum confd_vtype type;
  union {
    struct xml_tag xmltag;
    confd_buf_t buf;
    int8_t i8;
    int16_t i16;
    int32_t i32;
    int64_t i64;
    uint8_t u8;
    uint16_t u16;
    uint32_t u32;
    uint64_t u64;
    struct in_addr ip;
    int boolean;
    int32_t enumvalue;
    struct confd_list list;
    struct confd_ipv4_prefix ipv4prefix;
  } val;
} confd_value_t;

// Access to a value that must be of the named type: a value of another type ends the process
// through assert, whose text names the expression.
#define CONFD_GET_XMLTAG(v) (*(assert((v)->type == C_XMLTAG), &(v)->val.xmltag.tag))
#define CONFD_GET_XMLTAG_NS(v) (*(assert((v)->type == C_XMLTAG), &(v)->val.xmltag.ns))
#define CONFD_GET_BUFPTR(v) (*(assert((v)->type == C_BUF), &(v)->val.buf.ptr))
#define CONFD_GET_BUFSIZE(v) (*(assert((v)->type == C_BUF), &(v)->val.buf.size))
#define CONFD_GET_INT8(v) (*(assert((v)->type == C_INT8), &(v)->val.i8))
#define CONFD_GET_INT16(v) (*(assert((v)->type == C_INT16), &(v)->val.i16))
#define CONFD_GET_INT32(v) (*(assert((v)->type == C_INT32), &(v)->val.i32))
#define CONFD_GET_INT64(v) (*(assert((v)->type == C_INT64), &(v)->val.i64))
#define CONFD_GET_UINT8(v) (*(assert((v)->type == C_UINT8), &(v)->val.u8))
#define CONFD_GET_UINT16(v) (*(assert((v)->type == C_UINT16), &(v)->val.u16))
#define CONFD_GET_UINT32(v) (*(assert((v)->type == C_UINT32), &(v)->val.u32))
#define CONFD_GET_UINT64(v) (*(assert((v)->type == C_UINT64), &(v)->val.u64))
#define CONFD_GET_IPV4(v) (*(assert((v)->type == C_IPV4), &(v)->val.ip))
#define CONFD_GET_BOOL(v) (*(assert((v)->type == C_BOOL), &(v)->val.boolean))
#define CONFD_GET_ENUM_VALUE(v) (*(assert((v)->type == C_ENUM_VALUE), &(v)->val.enumvalue))
#define CONFD_GET_LIST(v) (*(assert((v)->type == C_LIST), &(v)->val.list.ptr))
#define CONFD_GET_LISTSIZE(v) (*(assert((v)->type == C_LIST), &(v)->val.list.size))
#define CONFD_GET_IPV4_AND_PLEN(v) (*(assert((v)->type == C_IPV4_AND_PLEN), &(v)->val.ipv4prefix))

enum {
  MAXDEPTH = 20,  // elements of a key path
  MAXKEYLEN = 9,  // keys of one list entry, with the C_NOEXISTS that ends them
};

// A path to a node: v[0] the node itself, v[len - 1] the outermost. v[i][0] is a C_XMLTAG, or the
// first key of a list entry, whose further keys follow in v[i][1] up to a C_NOEXISTS.
typedef struct confd_hkeypath {
  int len;
  confd_value_t v[MAXDEPTH][MAXKEYLEN];
} confd_hkeypath_t;

// The change that a diff iteration reports.
enum confd_iter_op {
  MOP_CREATED = 1,
  MOP_DELETED = 2,
  MOP_MODIFIED = 3,
  MOP_VALUE_SET = 4,
  MOP_MOVED_AFTER = 5,
  MOP_ATTR_SET = 6,
};

// What the iteration does next.
enum confd_iter_ret {
  ITER_STOP = 1,
  ITER_RECURSE = 2,
  ITER_CONTINUE = 3,
};

// Flags of a diff iteration.
enum {
  ITER_WANT_PREV = 1,  // the callback gets a changed leaf's previous value
};

// Code of the latest failure, one of CONFD_ERR_*.
extern int confd_errno;

// What failed, and where (the path included). Never null; valid until the next call of the library.
const char* confd_lasterr(void);

// The general meaning of an error code. Never null; static.
const char* confd_strerror(int code);

// Print a value or a key path into `buf` of `size` bytes, cut and NUL-terminated as snprintf does,
// and return the length of the whole text, or a negative number when it cannot be printed. Strings
// print bare, addresses dotted, prefixes as a.b.c.d/n, booleans as true and false, enumerations as
// enum<N>.
int confd_pp_value(char* buf, int size, const confd_value_t* value);
int confd_pp_kpath(char* buf, int size, const confd_hkeypath_t* path);

// Frees what `value` owns, never the struct itself; safe on every value that this library filled,
// and twice on the same one.
void confd_free_value(confd_value_t* value);

#ifdef __cplusplus
}
#endif

#pragma GCC visibility pop

#endif  // CONFD_LIB_H_
