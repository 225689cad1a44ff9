// Refuses a build without asserts: the daemon's checks of the types of configuration values, which
// end the process, are the asserts in the value macros of confd_lib.h.
//
// No include guard: like <cassert>, it looks at NDEBUG wherever it is included.

#ifdef NDEBUG
#error "NDEBUG removes the type checks of configuration values; build the daemon without it"
#endif
