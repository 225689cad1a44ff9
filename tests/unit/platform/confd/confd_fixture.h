// A data model of corner cases, and read sessions on data of it.

#ifndef TESTS_UNIT_PLATFORM_CONFD_CONFD_FIXTURE_H_
#define TESTS_UNIT_PLATFORM_CONFD_CONFD_FIXTURE_H_

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include <confd/session.h>
#include <confd_cdb.h>
#include <confd_lib.h>

namespace confd_test {

using Context = std::shared_ptr<const ly_ctx>;
using Tree = std::shared_ptr<const lyd_node>;

// The model of corner cases: modules vx-schema, shop and shop-extras, which augments shop.
Context MakeContext();

// Whether the data carries its default nodes, as it does when validated.
enum class Defaults { kImplicit, kLeftOut };

// Parses JSON data of this context. Null for "{}" without defaults.
Tree ParseData(const Context& context, const std::string& json, Defaults defaults);

const lysc_node* FindSchema(const Context& context, const std::string& path);

// A value that is released at the end of the scope.
class OwnedValue {
 public:
  OwnedValue() = default;
  ~OwnedValue() { confd_free_value(&value_); }
  OwnedValue(const OwnedValue&) = delete;
  OwnedValue& operator=(const OwnedValue&) = delete;

  confd_value_t* get() { return &value_; }
  confd_value_t* operator->() { return &value_; }

 private:
  confd_value_t value_ = {C_NOEXISTS, {}};
};

// As confd_pp_value, into a string; "<none>" for C_NOEXISTS.
std::string Text(const confd_value_t& value);

class ConfdTest : public testing::Test {
 protected:
  ConfdTest() : context_(MakeContext()) {}
  void TearDown() override { confd::CloseSession(sock_); }

  void Open(const std::string& json, Defaults defaults = Defaults::kImplicit);

  Context context_;
  int sock_ = -1;
};

}  // namespace confd_test

#endif  // TESTS_UNIT_PLATFORM_CONFD_CONFD_FIXTURE_H_
