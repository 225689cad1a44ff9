// Double of the configuration database: what a test puts in under a path is what the cdb_* calls
// answer for it.

#ifndef TESTS_FAKES_FAKE_CONFD_H_
#define TESTS_FAKES_FAKE_CONFD_H_

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <confd_cdb.h>
#include <confd_lib.h>

namespace fakes {

// What a value of the database will be; it becomes a confd_value_t when it is read.
struct Value {
  confd_vtype type = C_NOEXISTS;
  std::string text;         // strings, addresses
  std::int64_t number = 0;  // numbers, booleans, enumerations, prefix lengths
};

Value Buf(std::string text);
Value Flag(bool value);
Value Enumeration(std::int32_t number);
Value Int32(std::int32_t number);
Value Uint32(std::uint32_t number);
Value Address(std::string dotted);
Value Prefix(std::string dotted, int length);
Value Absent();
Value Unprintable();  // owns memory, and confd_pp_value refuses it

struct Failure {
  int result = CONFD_ERR;
  int code = CONFD_ERR_NOEXISTS;
  std::string text;
  int os_error = 0;
};

// One cdb_* call.
struct CdbCall {
  std::string name;
  std::string path;  // with the arguments put in
  std::string text;  // name, number arguments and path
  int sock = -1;
};

class Confd {
 public:
  static Confd& Get();
  void Reset();

  void SetList(const std::string& path, std::vector<Value> keys) { lists_[path] = std::move(keys); }
  void SetObject(const std::string& path, std::vector<Value> values);
  void SetLeaf(const std::string& path, Value value) { leaves_[path] = std::move(value); }

  // What cdb_exists says about a path, whatever is there.
  void SetExists(const std::string& path, int answer) { exists_answers_[path] = answer; }

  // Makes the call fail on that path and leave its results untouched.
  void Fail(const std::string& call, const std::string& path, Failure failure);

  const std::vector<CdbCall>& calls() const { return calls_; }
  std::vector<std::string> CallTexts() const;
  const std::vector<int>& pp_value_sizes() const { return pp_value_sizes_; }
  const std::vector<int>& pp_kpath_sizes() const { return pp_kpath_sizes_; }

  // Sessions, by the adapter's double.
  int OpenSession();
  void CloseSession(int sock);
  int open_sessions() const { return static_cast<int>(open_sockets_.size()); }
  int opened_sessions() const { return next_socket_ - kFirstSocket; }

  // Calls made on a socket that was not open.
  int stray_calls() const { return stray_calls_; }

  // Memory that values own, and values of objects and keys not handed to confd_free_value yet.
  int owned_blocks() const { return static_cast<int>(blocks_.size()); }
  int unreleased_values() const { return static_cast<int>(filled_.size()) + overwritten_; }
  int freed_twice() const { return freed_twice_; }

  // The C interface's side.
  int NumInstances(int sock, const std::string& path);
  int Exists(int sock, const std::string& path);
  int GetValue(int sock, const std::string& path, confd_value_t* value);
  int GetStr(int sock, const std::string& path, char* value, int size);
  int GetInt32(int sock, const std::string& path, std::int32_t* value);
  int GetPrefix(int sock, const std::string& path, confd_ipv4_prefix* value);
  int GetObject(int sock, const std::string& path, confd_value_t* values, int n);
  int GetObjects(int sock, const std::string& path, confd_value_t* values, int n, int ix, int nobj);
  int PrintValue(char* buf, int size, const confd_value_t* value);
  int PrintPath(char* buf, int size, const confd_hkeypath_t* path);
  void FreeValue(confd_value_t* value);
  const char* LastError() const { return last_error_.c_str(); }

 private:
  static constexpr int kFirstSocket = 41;

  // False, with the result and the error state set, when the call is to fail.
  bool Enter(const std::string& name, const std::string& numbers, int sock, const std::string& path,
             int* result);
  int SetError(int code, std::string text);
  const Value* FindLeaf(const std::string& path, confd_vtype type, int* result);
  void Fill(confd_value_t* slot, const Value& value);
  void Convert(confd_value_t* slot, const Value& value);
  unsigned char* Allocate(const std::string& bytes);

  std::map<std::string, std::vector<Value>> lists_;
  std::map<std::string, std::vector<Value>> objects_;
  std::map<std::string, Value> leaves_;
  std::map<std::string, int> exists_answers_;
  std::map<std::pair<std::string, std::string>, Failure> failures_;

  std::vector<CdbCall> calls_;
  std::vector<int> pp_value_sizes_;
  std::vector<int> pp_kpath_sizes_;
  std::string last_error_;

  int next_socket_ = kFirstSocket;
  std::set<int> open_sockets_;
  int stray_calls_ = 0;

  std::set<unsigned char*> blocks_;
  std::set<const confd_value_t*> filled_;
  int overwritten_ = 0;
  int freed_twice_ = 0;
};

}  // namespace fakes

#endif  // TESTS_FAKES_FAKE_CONFD_H_
