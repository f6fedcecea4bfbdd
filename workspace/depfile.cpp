// Tested by tests/tools/pack_test.cpp.

#include "depfile.h"

#include <set>

namespace zotuning {
namespace {

/// A path, escaped for Make.
std::string Escaped(const std::string& path) {
  std::string escaped;
  for (const char c : DisplayPath(path)) {
    if (c == ' ' || c == '#' || c == '\\') escaped += '\\';
    if (c == '$') escaped += '$';
    escaped += c;
  }
  return escaped;
}

}  // namespace

std::string DepfileText(const std::vector<std::string>& made, const Project& project,
                        const std::vector<ScopeInputs>& inputs) {
  std::set<std::string> files = {project.layout().ConfigPath(), project.layout().ProtoDir()};
  for (const auto& file : project.schema().files()) files.insert(project.layout().ProtoDir() + "/" + file.name);
  for (const ScopeInputs& scope : inputs) {
    const std::string dir = project.layout().ScopeDir(scope.name);
    files.insert(dir);
    for (const auto& [path, state] : scope.states) {
      // The file, and the folders between it and the scope's folder.
      for (std::string each = path; each.size() > dir.size() && files.insert(each).second;) each.erase(each.rfind('/'));
    }
  }
  std::string text;
  for (const std::string& bin : made) text += (text.empty() ? "" : " ") + Escaped(bin);
  text += ":";
  for (const std::string& file : files) text += " \\\n  " + Escaped(file);
  text += "\n";
  for (const std::string& file : files) text += "\n" + Escaped(file) + ":\n";
  return text;
}

}  // namespace zotuning
