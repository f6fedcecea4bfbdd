// What others build on: the pages and the schema of the tool's interface, completions, and the examples in its help.

#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <set>
#include <sstream>

#include "tools/tool.h"

namespace zotest {
namespace {

std::string Source(const std::string& file) { return Read(ZOTUNING_SOURCE_DIR "/" + file); }

Strings Lines(const std::string& text) {
  Strings lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

/// Finds where a value violates a JSON schema; supports as much of JSON Schema as docs/json-output.schema.json uses.
class SchemaCheck {
 public:
  explicit SchemaCheck(Json schema) : root_(std::move(schema)) {}

  std::string Fault(const Json& value) const { return Fault(value, root_, "$"); }

 private:
  static bool IsOf(const Json& value, const std::string& type) {
    return type == "null"      ? value.is_null()
           : type == "object"  ? value.is_object()
           : type == "array"   ? value.is_array()
           : type == "string"  ? value.is_string()
           : type == "boolean" ? value.is_boolean()
           : type == "integer" ? value.is_number_integer()
                               : type == "number" && value.is_number();
  }

  std::string Fault(const Json& value, const Json& schema, const std::string& at) const {
    for (const auto& [key, want] : schema.items()) {
      std::string fault;
      if (key == "$ref") {
        fault = Fault(value, root_.at(Json::json_pointer(want.get<std::string>().substr(1))), at);
      } else if (key == "type") {
        bool good = false;
        for (const Json& type : want.is_array() ? want : Json::array({want})) good = good || IsOf(value, type);
        if (!good) fault = at + " is not of type " + want.dump();
      } else if (key == "const" && value != want) {
        fault = at + " is not " + want.dump();
      } else if (key == "enum" && std::find(want.begin(), want.end(), value) == want.end()) {
        fault = at + " is none of " + want.dump();
      } else if (key == "minimum" && value.is_number() && value < want) {
        fault = at + " is less than " + want.dump();
      } else if (key == "required" && value.is_object()) {
        for (const Json& name : want) {
          if (!value.contains(name.get<std::string>())) fault = at + " has no " + name.dump();
        }
      } else if (key == "items" && value.is_array()) {
        for (size_t i = 0; i < value.size() && fault.empty(); ++i) {
          fault = Fault(value[i], want, at + "[" + std::to_string(i) + "]");
        }
      } else if (key == "properties" && value.is_object()) {
        for (const auto& [name, inner] : want.items()) {
          if (fault.empty() && value.contains(name)) fault = Fault(value[name], inner, at + "." + name);
        }
      } else if (key == "additionalProperties" && value.is_object()) {
        for (const auto& [name, inner] : value.items()) {
          if (schema.contains("properties") && schema["properties"].contains(name)) continue;
          if (fault.empty()) fault = want == false ? at + " has a key " + name : Fault(inner, want, at + "." + name);
        }
      } else if (key == "allOf") {
        for (const Json& each : want) {
          if (fault.empty() && (!each.contains("if") || Fault(value, each["if"], at).empty())) {
            fault = Fault(value, each.contains("if") ? each["then"] : each, at);
          }
        }
      }
      if (!fault.empty()) return fault;
    }
    return "";
  }

  Json root_;
};

/// All commands that the help lists: "pack", "version set".
Strings Commands(const std::function<Ran(const std::string&)>& tool, const std::string& above = "") {
  Strings commands;
  bool inside = false;
  for (const std::string& line : Lines(tool(above + "--help").out)) {
    if (inside && line.empty()) break;
    if (inside && line.size() > 2 && line[2] != ' ') {
      const std::string name = above + line.substr(2, line.find(' ', 2) - 2);
      commands.push_back(name);
      if (name == "help") continue;
      for (std::string& below : Commands(tool, name + " ")) commands.push_back(std::move(below));
    }
    inside = inside || line == "Subcommands:";
  }
  return commands;
}

class InterfaceTest : public PackedTest {
 protected:
  void SetUp() override {
    PackedTest::SetUp();
    commands_ = Commands([this](const std::string& line) { return Tool(line); });
    ASSERT_GT(commands_.size(), 20u);
    has_report_ = Tool("report -o page.html").code != 2;
  }

  /// The examples of a command's help, without their explanations.
  Strings ExamplesOf(const std::string& command) const {
    Strings examples;
    bool inside = false;
    for (const std::string& line : Lines(Tool(command + " --help").out)) {
      if (inside && line.empty()) break;
      if (inside) examples.push_back(line.substr(2, line.find("    ", 2) - 2));
      inside = inside || line == "Examples:";
    }
    return examples;
  }

  Strings commands_;
  /// A build without the page's packages says so.
  bool has_report_ = false;
};

TEST_F(InterfaceTest, ThePageOfDiagnosticsIsThatOfTheTable) {
  EXPECT_EQ(Source("docs/diagnostics.md"), Tool("check --explain all").out)
      << "make it again: zotuning check --explain all > docs/diagnostics.md";
  const std::string page = Source("docs/tool.md");
  for (const std::string& command : commands_) EXPECT_THAT(page, HasSubstr("| `" + command + "` |"));
}

TEST_F(InterfaceTest, JsonIsAsItsSchemaSays) {
  const Json root = Json::parse(Source("docs/json-output.schema.json"));
  const SchemaCheck schema(root);
  std::set<std::string> met;
  const auto look = [&](const std::string& line) {
    const Ran run = Tool("--json " + line);
    const Json output = run.json();
    EXPECT_EQ(schema.Fault(output), "") << line << "\n" << run.out.substr(0, 2000);
    if (run.code == 0) met.insert(output["command"].get<std::string>());
  };
  const Ran repository = RunProgram("bash",
                                    {"-c",
                                     "git init -q . && git add -A && git -c user.name=me -c user.email=me@example.org "
                                     "commit -qm one"},
                                    {dir_});
  ASSERT_EQ(repository.code, 0) << repository.err;
  for (const char* line :
       {"init other --proto proto --sensor a --into made", "check", "check --explain io", "check --explain all",
        "template --all", "new --sensor front module=AfCommon mode=7", "get lens.macro_code",
        "set lens.macro_code=700 --where module=AfCommon", "fmt", "pack -o out --force", "modules", "labels", "sensors",
        "sensors add rear --from front", "sensors rename rear back", "sensors remove back --yes", "tree", "show out",
        "show out/zo_tuning/front.bin", "show out/zo_tuning/front.bin --record 1", "diff main_wide front",
        "diff HEAD: .", "which main_wide module=AfCommon mode=1", "report main_wide -o page.html",
        "pack -o out --force", "verify out", "set lens.macro_code=701 --where module=AfCommon --dry-run",
        "fmt --dry-run", "migrate", "migrate --dry-run", "schema json AfLinkKeyFar", "schema json --vscode",
        "schema compare HEAD", "version list", "version set AF 9", "version header", "version header --check",
        // Failures.
        "", "packk", "pack", "show nowhere", "modules extra", "sensors add front", "-C nowhere modules",
        "pack -o out"}) {
    look(line);
  }
  Edit("proto/label.proto", "EnumTuningDataLable_Module_PdCalib = 49;", "EnumTuningDataLable_Module_PdCalib = 99;");
  Edit("proto/awb.proto", "ZO_TUNING.FloatData speed = 1;", "ZO_TUNING.FloatData speed = 7;");
  for (const char* line : {"show out/zo_tuning/front.bin", "verify out", "schema compare HEAD"}) look(line);
  Write(At("front/mode_1/AfCommon.json"), "{\"gain\": 1}");
  Write(At("front/modde_1/AfCommon.json"), "{");
  look("check");
  look("pack -o bad");
  for (const std::string& command : commands_) {
    // Those print help alone.
    if (command == "help" || command == "schema" || command == "version") continue;
    EXPECT_TRUE(std::any_of(root["allOf"].begin(), root["allOf"].end(),
                            [&](const Json& each) { return each["if"]["properties"]["command"]["const"] == command; }))
        << "no schema of " << command;
    if (command == "report" && !has_report_) continue;
    EXPECT_EQ(met.count(command), 1u) << "no successful run of " << command;
  }
}

// The properties that SARIF 2.1.0 requires, and the values that it knows.
TEST_F(InterfaceTest, SarifHasWhatItsSchemaRequires) {
  Write(At("front/mode_1/AfCommon.json"), "{\"gain\": 1}");
  Write(At("front/mode 2 #\xC3\xA4/AfCommon.JSON"), "");
  const Json log = Json::parse(Tool("check --format sarif").out);
  EXPECT_EQ(log["version"], "2.1.0");
  ASSERT_EQ(log["runs"].size(), 1u);
  const Json& run = log["runs"][0];
  EXPECT_TRUE(run["tool"]["driver"]["name"].is_string());
  EXPECT_EQ(run["columnKind"], "unicodeCodePoints");
  std::set<std::string> rules;
  for (const Json& rule : run["tool"]["driver"]["rules"]) {
    EXPECT_TRUE(rules.insert(rule["id"]).second) << rule;
    for (const char* text : {"shortDescription", "fullDescription", "help"})
      EXPECT_TRUE(rule[text]["text"].is_string());
  }
  ASSERT_GT(run["results"].size(), 3u);
  for (const Json& result : run["results"]) {
    EXPECT_TRUE(result["message"]["text"].is_string());
    EXPECT_EQ(rules.count(result["ruleId"]), 1u) << result;
    EXPECT_TRUE(result["level"] == "error" || result["level"] == "warning") << result;
    for (const Json& location : result["locations"]) {
      const Json& physical = location["physicalLocation"];
      const std::string uri = physical["artifactLocation"]["uri"];
      EXPECT_EQ(uri.find_first_of(" #\xC3"), uri.npos) << uri;
      if (!physical.contains("region")) continue;
      EXPECT_GE(physical["region"]["startLine"], 1);
      EXPECT_GE(physical["region"]["startColumn"], 1);
      EXPECT_GE(physical["region"]["endLine"], physical["region"]["startLine"]);
    }
  }
}

/// A shell, and what completes each of its arguments: the words, and in a line of its own "==".
struct Shell {
  const char* name;
  const char* script;
  bool quotes;  ///< whether the last word of a line stands in quotes
};

const Shell kShells[] = {
    {"bash",
     "PATH=$PWD:$PATH; compopt() { :; }; source '" ZOTUNING_SOURCE_DIR
     "/packaging/completions/zotuning.bash'; for line in \"$@\"; do eval \"COMP_WORDS=(zotuning $line)\"; "
     "COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _zotuning; printf '%s\\n' \"${COMPREPLY[@]}\" ==; done",
     true},
    // What the shell's own functions do with the words, but for files.
    {"zsh",
     "PATH=$PWD:$PATH; compadd() { while [[ $1 != -a ]]; do shift; done; print -rl -- ${(M)${(P)2}:#$PREFIX*} }; "
     "_describe() { print -rl -- ${(M)${${(P)2}%%:*}:#$PREFIX*} }; _directories() { : }; _files() { : }; "
     "compset() { [[ $PREFIX == *=* ]] || return 1; IPREFIX=${PREFIX%%=*}=; PREFIX=${PREFIX#*=} }; "
     "for line in \"$@\"; do eval \"words=(zotuning $line)\"; CURRENT=$#words; PREFIX=$words[-1]; source '" ZOTUNING_SOURCE_DIR
     "/packaging/completions/_zotuning'; print -- '=='; done",
     true},
    {"fish",
     "set -x PATH $PWD $PATH; source '" ZOTUNING_SOURCE_DIR
     "/packaging/completions/zotuning.fish'; for line in $argv; complete -C \"zotuning $line\" | string replace -r "
     "'\\t.*' ''; echo ==; end",
     false},
};

TEST_F(InterfaceTest, CompletionsKnowEveryCommandOptionAndValue) {
  Write(At("zotuning"), "#!/bin/sh\nexec '" ZOTUNING_TOOL "' \"$@\"\n");
  std::filesystem::permissions(At("zotuning"), std::filesystem::perms::owner_all);
  struct Query {
    std::string words, current;
    Strings wanted;
    bool is_all;  ///< nothing else may come
  };
  std::vector<Query> queries = {
      {"pack --sensor", "fr", {"front"}, true},
      {"check --select", "json-tr", {"json-trailing-comma"}, true},
      {"sensors remove", "ma", {"main_wide"}, true},
      {"sensors add rear --from", "fr", {"front"}, true},
      {"report front --against", "de", {"default"}, true},
      {"labels", "sce", {"scenario", "scene"}, true},
      {"version set", "AW", {"AWB"}, true},
      {"diff", "fr", {"front"}, false},
      {"which", "fr", {"front"}, true},
  };
  for (const std::string& command : commands_) {
    const size_t space = command.rfind(' ');
    const std::string above = space == command.npos ? "" : command.substr(0, space);
    queries.push_back({above, "", {command.substr(space == command.npos ? 0 : space + 1)}, false});
    if (command == "help") continue;
    queries.push_back({command, "-", {}, false});
    const size_t options = queries.size() - 1;
    for (const std::string& line : Lines(Tool(command + " --help").out)) {
      if (line.rfind("  -", 0) != 0) continue;
      std::istringstream names(line.substr(2, line.find_first_of(" :", 2) - 2));
      for (std::string name; std::getline(names, name, ',');) queries[options].wanted.push_back(name);
      const size_t open = line.find(":{"), close = line.find('}');
      if (open == line.npos) continue;
      std::istringstream values(line.substr(open + 2, close - open - 2));
      Query query = {command + " " + queries[options].wanted.back(), "", {}, false};
      for (std::string value; std::getline(values, value, ',');) query.wanted.push_back(value);
      queries.push_back(std::move(query));
    }
  }
  for (const Shell& shell : kShells) {
    if (std::system((std::string("command -v ") + shell.name + " > /dev/null").c_str()) != 0) {
      std::cout << "there is no " << shell.name << "\n";
      continue;
    }
    // Of the arguments of bash and zsh the first is $0.
    Strings arguments = {"-c", shell.script};
    if (shell.quotes) arguments.emplace_back("-");
    for (const Query& query : queries) {
      arguments.push_back(query.words + (shell.quotes ? " '" + query.current + "'" : " " + query.current));
    }
    const Ran run = RunProgram(shell.name, arguments, {dir_});
    EXPECT_EQ(run.err, "") << shell.name;
    size_t at = 0;
    const Strings lines = Lines(run.out);
    for (const Query& query : queries) {
      std::set<std::string> known;
      for (; at < lines.size() && lines[at] != "=="; ++at) {
        if (!lines[at].empty()) known.insert(lines[at]);
      }
      ++at;
      for (const std::string& wanted : query.wanted) {
        EXPECT_EQ(known.count(wanted), 1u) << shell.name << ": " << query.words << " lacks " << wanted;
      }
      if (query.is_all) {
        EXPECT_EQ(known.size(), query.wanted.size()) << shell.name << ": " << query.words;
      }
    }
    EXPECT_EQ(at, lines.size()) << shell.name;
  }
}

TEST_F(InterfaceTest, EveryExampleOfTheHelpRuns) {
  // What the examples assume: the schema of a new project, a home, and a repository with a history.
  Write(At("zotuning"), "#!/bin/sh\nexec '" ZOTUNING_TOOL "' \"$@\"\n");
  std::filesystem::permissions(At("zotuning"), std::filesystem::perms::owner_all);
  std::filesystem::remove_all(At("out"));
  const Ran prepared = RunProgram(
      "bash",
      {"-c",
       "export HOME=$PWD/home PATH=$PWD:$PATH\n"
       "mkdir -p home/projects && cp -r proto schema && git init -q . && git config user.name me && "
       "git config user.email me@example.org && echo /zotuning >.gitignore && git add -A && git commit -qm one && "
       "git commit -q --allow-empty -m two && git tag v1.2 && zotuning pack -o out && "
       "zotuning get red.gain --where module=LensShading sensor=default --format csv >gain.csv"},
      {dir_});
  ASSERT_EQ(prepared.code, 0) << prepared.out << prepared.err;
  const std::set<std::string> reading = {"check", "get",   "modules", "labels", "sensors",        "tree",        "show",
                                         "diff",  "which", "verify",  "schema", "schema compare", "version list"};
  size_t count = 0;
  for (const std::string& command : commands_) {
    if (command == "help") continue;
    const Strings examples = ExamplesOf(command);
    EXPECT_FALSE(examples.empty()) << command;
    for (const std::string& example : examples) {
      // Commands that change their project get one of their own.
      const TempDir copy;
      std::string dir = dir_;
      if (reading.count(command) == 0 || example.find("sensors add") != example.npos) {
        dir = copy / "project";
        std::filesystem::copy(dir_, dir, std::filesystem::copy_options::recursive);
      }
      // Commands whose output must not exist yet.
      std::string before =
          example.find("pack -o out") != example.npos && example.find("--force") == example.npos ? "rm -rf out\n" : "";
      // A schema that has changed as the example says.
      if (example.find("--rename ") != example.npos) before += "sed -i 's/backlash_codes/backlash/' proto/af.proto\n";
      if (example.find("--rename-module") != example.npos) {
        before +=
            "sed -i 's/_AfContrast/_AfSharpness/; s/Scenario_Video/Scenario_Movie/; s/message AfContrast/message "
            "AfSharpness/' proto/label.proto proto/af.proto\n";
      }
      const Ran run = RunProgram(
          "bash",
          {"-c", "export HOME=$PWD/home PATH=$PWD:$PATH GIT_PAGER=cat\n" + before + "{ " + example + "\n} 2>&1"},
          {dir});
      if (command == "report" && !has_report_) continue;
      // Exit code 1 means that a command has found something.
      EXPECT_TRUE(run.code == 0 || (run.code == 1 && run.out.find("error: cannot") == run.out.npos &&
                                    example.find("check") != example.npos))
          << example << " ended with " << run.code << "\n"
          << run.out << run.err;
      ++count;
    }
  }
  EXPECT_GT(count, 40u);
}

}  // namespace
}  // namespace zotest
