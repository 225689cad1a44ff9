// Writes the header of hash constants from the data model:
//   schema_hash_gen YANG_DIRECTORY OUTPUT MODULE...
//
// A node with the extension tag-hash becomes kTag and its name, a module with ns-hash becomes kNs
// and its name without the leading "vx-".

#include <libyang/libyang.h>

#include <cctype>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <map>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

namespace {

constexpr std::string_view kVendorPrefix = "vx-";

struct ContextDeleter {
  void operator()(ly_ctx* context) const { ly_ctx_destroy(context); }
};
using ContextPtr = std::unique_ptr<ly_ctx, ContextDeleter>;

std::string Hexadecimal(std::uint32_t number) {
  constexpr int kDigits = 8;
  std::ostringstream text;
  text << "0x" << std::hex << std::setw(kDigits) << std::setfill('0') << number;
  return text.str();
}

// Constants of one kind: a name has one number, and a number one name.
class Constants {
 public:
  explicit Constants(std::string kind) : kind_(std::move(kind)) {}

  void Add(const std::string& name, std::uint32_t number) {
    const auto [by_name, new_name] = numbers_.emplace(name, number);
    if (!new_name && by_name->second != number) {
      throw std::runtime_error(kind_ + " " + name + " has two numbers: " +
                               Hexadecimal(by_name->second) + " and " + Hexadecimal(number));
    }
    const auto [by_number, new_number] = names_.emplace(number, name);
    if (!new_number && by_number->second != name) {
      throw std::runtime_error("two " + kind_ + "s have the number " + Hexadecimal(number) + ": " +
                               by_number->second + " and " + name);
    }
  }

  const std::map<std::string, std::uint32_t>& numbers() const { return numbers_; }

 private:
  std::string kind_;
  std::map<std::string, std::uint32_t> numbers_;
  std::map<std::uint32_t, std::string> names_;
};

std::uint32_t Number(std::string_view text, const std::string& owner) {
  constexpr std::string_view kPrefix = "0x";
  constexpr int kBase = 16;
  const bool prefixed = text.starts_with(kPrefix);
  const std::string_view digits = text.substr(prefixed ? kPrefix.size() : 0);
  std::uint32_t number = 0;
  const char* const last = digits.data() + digits.size();
  const auto [end, error] = std::from_chars(digits.data(), last, number, kBase);
  if (!prefixed || error != std::errc() || end != last) {
    throw std::runtime_error(owner + ": \"" + std::string(text) +
                             "\" is not a hexadecimal number of 32 bits, such as 0x0123abcd");
  }
  return number;
}

// The extension's argument; null when there is none on the node or module.
const char* Argument(const lysc_ext_instance* extensions, const char* name) {
  LY_ARRAY_COUNT_TYPE index = 0;
  LY_ARRAY_FOR(extensions, index) {
    const lysc_ext* definition = extensions[index].def;
    if (std::strcmp(definition->name, name) == 0 &&
        std::strcmp(definition->module->name, "vx-schema") == 0) {
      return extensions[index].argument;
    }
  }
  return nullptr;
}

std::string UpperCamel(std::string_view name) {
  std::string result;
  bool start = true;
  for (const char c : name) {
    if (c == '-' || c == '_' || c == '.') {
      start = true;
      continue;
    }
    result += start ? static_cast<char>(std::toupper(static_cast<unsigned char>(c))) : c;
    start = false;
  }
  return result;
}

LY_ERR CollectTag(lysc_node* node, void* constants, ly_bool* /*skip_children*/) {
  if (const char* argument = Argument(node->exts, "tag-hash")) {
    try {
      static_cast<Constants*>(constants)->Add(UpperCamel(node->name), Number(argument, node->name));
    } catch (const std::exception& error) {
      std::cerr << "schema_hash_gen: " << error.what() << '\n';
      return LY_EINVAL;
    }
  }
  return LY_SUCCESS;
}

ContextPtr Load(const char* directory, char* const* modules, int count) {
  ly_ctx* made = nullptr;
  if (ly_ctx_new(directory, 0, &made) != LY_SUCCESS) {
    throw std::runtime_error(std::string("cannot use the YANG directory ") + directory);
  }
  ContextPtr context(made);
  for (int i = 0; i < count; ++i) {
    if (ly_ctx_load_module(made, modules[i], nullptr, nullptr) == nullptr) {
      throw std::runtime_error(std::string("cannot load the module ") + modules[i]);
    }
  }
  return context;
}

void Collect(const ly_ctx* context, Constants& tags, Constants& namespaces) {
  std::uint32_t index = 0;
  while (const lys_module* module = ly_ctx_get_module_iter(context, &index)) {
    if (module->compiled == nullptr) continue;
    std::string_view name = module->name;
    if (const char* argument = Argument(module->compiled->exts, "ns-hash")) {
      if (name.starts_with(kVendorPrefix)) name.remove_prefix(kVendorPrefix.size());
      namespaces.Add(UpperCamel(name), Number(argument, module->name));
    }
    if (lysc_module_dfs_full(module, CollectTag, &tags) != LY_SUCCESS) {
      throw std::runtime_error(std::string("cannot collect the tags of ") + module->name);
    }
  }
}

void Write(std::ostream& out, const char* prefix, const Constants& constants) {
  for (const auto& [name, number] : constants.numbers()) {
    out << "inline constexpr std::uint32_t " << prefix << name << " = " << Hexadecimal(number)
        << ";\n";
  }
}

void WriteHeader(const char* file, const Constants& tags, const Constants& namespaces) {
  std::ofstream out(file);
  out << "// Numbers of the nodes and namespaces of the data model. Generated from it.\n\n"
         "#ifndef VX_SCHEMA_HASH_H_\n#define VX_SCHEMA_HASH_H_\n\n#include <cstdint>\n\n"
         "namespace vx_schema {\n\n";
  Write(out, "kTag", tags);
  out << '\n';
  Write(out, "kNs", namespaces);
  out << "\n}  // namespace vx_schema\n\n#endif  // VX_SCHEMA_HASH_H_\n";
  out.close();
  if (!out) throw std::runtime_error(std::string("cannot write ") + file);
}

}  // namespace

int main(int argc, char** argv) {
  constexpr int kFirstModule = 3;
  if (argc <= kFirstModule) {
    std::cerr << "usage: schema_hash_gen YANG_DIRECTORY OUTPUT MODULE...\n";
    return 2;
  }
  try {
    const ContextPtr context = Load(argv[1], argv + kFirstModule, argc - kFirstModule);
    Constants tags("node");
    Constants namespaces("namespace");
    Collect(context.get(), tags, namespaces);
    WriteHeader(argv[2], tags, namespaces);
  } catch (const std::exception& error) {
    std::cerr << "schema_hash_gen: " << error.what() << '\n';
    return 1;
  }
  return 0;
}
