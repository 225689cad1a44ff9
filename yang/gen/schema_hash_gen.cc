// Writes the header of hash constants from the data model: schema_hash_gen YANG_DIRECTORY OUTPUT
// MODULE...
//
// A node with the extension tag-hash becomes kTag and its name, a module with ns-hash becomes kNs
// and its name without the leading "vx-".

#include <libyang/libyang.h>

#include <cctype>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iostream>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

namespace {

constexpr std::string_view kVendorPrefix = "vx-";

struct ContextDeleter {
  void operator()(ly_ctx* context) const { ly_ctx_destroy(context); }
};
using ContextPtr = std::unique_ptr<ly_ctx, ContextDeleter>;

// Constants of one kind: a name has one number, and a number one name.
class Constants {
 public:
  explicit Constants(std::string kind) : kind_(std::move(kind)) {}

  void Add(const std::string& name, const std::string& number) {
    const auto [by_name, new_name] = numbers_.emplace(name, number);
    if (!new_name && by_name->second != number) {
      throw std::runtime_error(kind_ + " " + name + " has two numbers: " + by_name->second +
                               " and " + number);
    }
    const auto [by_number, new_number] = names_.emplace(number, name);
    if (!new_number && by_number->second != name) {
      throw std::runtime_error("two " + kind_ + "s have the number " + number + ": " +
                               by_number->second + " and " + name);
    }
  }

  const std::map<std::string, std::string>& numbers() const { return numbers_; }

 private:
  std::string kind_;
  std::map<std::string, std::string> numbers_;
  std::map<std::string, std::string> names_;
};

std::string Number(const char* text, const std::string& owner) {
  char* end = nullptr;
  const unsigned long long number = std::strtoull(text, &end, 16);
  if (std::strncmp(text, "0x", 2) != 0 || *end != '\0' || number > UINT32_MAX) {
    throw std::runtime_error(owner + ": " + text + " is not a hexadecimal number of 32 bits");
  }
  return text;
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
    out << "inline constexpr std::uint32_t " << prefix << name << " = " << number << ";\n";
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
