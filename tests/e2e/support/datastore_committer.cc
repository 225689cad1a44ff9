// A user of the datastore that commits on demand, with a time-out of its choice, from one session
// that stays open. It reads commands from standard input, a line each, and answers each on a line:
//
//   commit MILLISECONDS JSON   an edit; answered by "done" and the microseconds that the commit
//                              took, or by "refused" and why
//   read                       answered by the configuration as JSON, without what is default
//   subscribe MILLISECONDS     takes that long for each commit from now on, and is told of each
//                              before the daemon is; answered by "subscribed"

#include <libyang/libyang.h>
#include <sysrepo.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>

namespace {

using std::chrono::steady_clock;

constexpr std::uint32_t kFirst = 100;  // priority, above the daemon's
constexpr char kConfiguration[] = "/vx-config:* | /metacli-internal:*";

struct FreeText {
  void operator()(char* text) const { std::free(text); }
};

class Committer {
 public:
  Committer() {
    Check(sr_connect(SR_CONN_DEFAULT, &connection_), "sr_connect");
    Check(sr_session_start(connection_, SR_DS_RUNNING, &session_), "sr_session_start");
  }
  ~Committer() {
    sr_unsubscribe(subscription_);
    sr_disconnect(connection_);
  }
  Committer(const Committer&) = delete;
  Committer& operator=(const Committer&) = delete;

  // Throws std::runtime_error when the datastore refuses.
  steady_clock::duration Commit(std::uint32_t timeout, const std::string& json) {
    const auto start = steady_clock::now();
    Edit(json);
    if (const int code = sr_apply_changes(session_, timeout); code != SR_ERR_OK) {
      const std::string reason = LastError(code);
      sr_discard_changes(session_);
      throw std::runtime_error(reason);
    }
    return steady_clock::now() - start;
  }

  std::string Read() {
    sr_data_t* data = nullptr;
    Check(sr_get_data(session_, kConfiguration, 0, 0, 0, &data), "sr_get_data");
    const std::unique_ptr<sr_data_t, void (*)(sr_data_t*)> owner(data, sr_release_data);
    char* text = nullptr;
    if (data != nullptr) {
      lyd_print_mem(&text, data->tree, LYD_JSON, LYD_PRINT_WITHSIBLINGS | LYD_PRINT_SHRINK);
    }
    const std::unique_ptr<char, FreeText> text_owner(text);
    return text != nullptr ? text : "{}";
  }

  void Subscribe(std::chrono::milliseconds span) {
    span_ = span;
    Check(sr_module_change_subscribe(session_, "vx-config", nullptr, OnChange, this, kFirst,
                                     SR_SUBSCR_DONE_ONLY, &subscription_),
          "sr_module_change_subscribe");
  }

 private:
  static int OnChange(sr_session_ctx_t* /*session*/, std::uint32_t /*id*/, const char* /*module*/,
                      const char* /*xpath*/, sr_event_t /*event*/, std::uint32_t /*request*/,
                      void* self) {
    std::this_thread::sleep_for(static_cast<Committer*>(self)->span_);
    return SR_ERR_OK;
  }

  std::string LastError(int code) {
    const sr_error_info_t* info = nullptr;
    if (sr_session_get_error(session_, &info) != SR_ERR_OK || info == nullptr) {
      return sr_strerror(code);
    }
    return info->err[0].message;
  }

  static void Check(int code, const std::string& what) {
    if (code != SR_ERR_OK) throw std::runtime_error(what + ": " + sr_strerror(code));
  }

  void Edit(const std::string& json) {
    const ly_ctx* context = sr_acquire_context(connection_);
    lyd_node* edit = nullptr;
    int code = SR_ERR_LY;
    if (lyd_parse_data_mem(context, json.c_str(), LYD_JSON, LYD_PARSE_ONLY | LYD_PARSE_STRICT, 0,
                           &edit) == LY_SUCCESS) {
      code = sr_edit_batch(session_, edit, "merge");
    }
    lyd_free_all(edit);
    sr_release_context(connection_);
    Check(code, "edit");
  }

  sr_conn_ctx_t* connection_ = nullptr;
  sr_session_ctx_t* session_ = nullptr;  // of the connection
  sr_subscription_ctx_t* subscription_ = nullptr;
  std::chrono::milliseconds span_{};
};

std::string Commit(Committer& committer, std::istream& words) {
  std::uint32_t timeout = 0;
  std::string json;
  words >> timeout;
  std::getline(words, json);
  try {
    const auto span = committer.Commit(timeout, json);
    return "done " +
           std::to_string(std::chrono::duration_cast<std::chrono::microseconds>(span).count());
  } catch (const std::runtime_error& error) {
    return std::string("refused ") + error.what();
  }
}

std::string Subscribe(Committer& committer, std::istream& words) {
  int span = 0;
  words >> span;
  committer.Subscribe(std::chrono::milliseconds(span));
  return "subscribed";
}

std::string Answer(Committer& committer, const std::string& line) {
  std::istringstream words(line);
  std::string command;
  words >> command;
  if (command == "commit") return Commit(committer, words);
  if (command == "read") return committer.Read();
  if (command == "subscribe") return Subscribe(committer, words);
  throw std::logic_error("cannot understand: " + line);
}

}  // namespace

int main() {
  try {
    Committer committer;
    for (std::string line; std::getline(std::cin, line);) {
      std::cout << Answer(committer, line) << std::endl;
    }
  } catch (const std::exception& error) {
    std::fprintf(stderr, "datastore_committer: %s\n", error.what());
    return 1;
  }
  return 0;
}
