// zotuning, the console tool of the tuning library: reads the command line, runs one command, prints its console.

#include <fcntl.h>
#include <unistd.h>

#include <google/protobuf/stubs/common.h>
#include <google/protobuf/stubs/logging.h>

#include <algorithm>

#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "command_context.h"
#include "workspace/suggest.h"
#include "zotuning_version.h"

namespace zotuning::tool {

namespace {

constexpr const char* kFooter =
    "Life of a project:\n"
    "  zotuning init demo --proto schema --sensor main_wide     make it from its schema\n"
    "  cd demo && zotuning template --all                       default data of every module\n"
    "  zotuning new --sensor main_wide module=AfCommon mode=1   a setting, to be edited\n"
    "  zotuning tree                                            look around\n"
    "  zotuning pack -o out                                     out/zo_tuning/*.bin\n"
    "\n"
    "Exit code: 0 done; 1 the job failed or found faults; 2 wrong usage, or no project.\n"
    "Results go to standard output, messages to standard error. NO_COLOR is honoured.\n";

int FailUsage(CLI::App& app, CommandContext& context, const CLI::ParseError& error, int argument_count,
              char** arguments) {
  std::string message = error.what();
  std::vector<std::string> words;
  const CLI::App* at = &app;
  std::string command;
  for (int i = 1; i < argument_count; ++i) {
    words.emplace_back(arguments[i]);
    if (words.back() == "--json") context.json = true;
  }
  while (!at->get_subcommands().empty()) {
    at = at->get_subcommands().front();
    command += (command.empty() ? "" : " ") + at->get_name();
  }
  // "--record: 1 required N missing"
  if (const size_t wanted = message.find(": 1 required ");
      error.get_name() == "ArgumentMismatch" && wanted != message.npos) {
    message = message.substr(0, wanted) + " needs a value";
  }
  const auto commands = at->get_subcommands([](const CLI::App*) { return true; });
  const std::vector<std::string> extra = app.remaining(true);
  if (extra.empty()) {
    if (!commands.empty() && error.get_name() == "RequiredError") message = "a command is missing";
  } else {
    const std::string& word = extra.front();
    std::vector<std::string> known;
    const bool option = word[0] == '-' && std::find(words.begin(), words.end(), "--") == words.end();
    if (option) {
      for (const CLI::App* owner : {at, static_cast<const CLI::App*>(&app)}) {
        for (const CLI::Option* each : owner->get_options()) {
          for (const std::string& name : each->get_lnames()) known.push_back("--" + name);
        }
      }
    }
    for (const CLI::App* sub : commands) {
      if (!option) known.push_back(sub->get_name());
    }
    message = (option              ? "no option "
               : !commands.empty() ? "no command "
                                   : "unexpected argument ") +
              Quoted(word) + DidYouMean(word, known);
  }
  context.console.Begin(command, context.json);
  context.console.Report(Code::kUsage, message, "see 'zotuning" + (command.empty() ? "" : " " + command) + " --help'");
  return context.console.Finish(kMisuse);
}

/// A standard descriptor that is closed would go to the next file opened, and what is printed into that file. What
/// stands in its place fails reads and writes as the closed one does.
void OccupyStandardDescriptors() {
  for (const int number : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(number, F_GETFD) == -1) (void)!open("/dev/null", number == STDIN_FILENO ? O_WRONLY : O_RDONLY);
  }
}

bool g_verbose = false;

void HandleProtobufLine(google::protobuf::LogLevel level, const char* file, int line, const std::string& message) {
  if (level != google::protobuf::LOGLEVEL_FATAL && !g_verbose) return;
  (void)std::fprintf(stderr, "zotuning: protobuf: %s:%d: %s\n", file, line, Printable(message).c_str());
}

/// Whether the words after the first name a command, or nothing.
bool IsCommand(const CLI::App& app, const std::vector<char*>& words) {
  const CLI::App* at = &app;
  for (size_t i = 1; i < words.size() && at != nullptr; ++i) {
    const auto found = at->get_subcommands([&](const CLI::App* each) { return each->get_name() == words[i]; });
    at = found.empty() ? nullptr : found[0];
  }
  return at != nullptr;
}

/// In the order of the help.
void AddCommands(CLI::App& app, CommandContext& context) {
  AddInit(app, context);
  AddCheck(app, context);
  AddTemplate(app, context);
  AddNew(app, context);
  AddGet(app, context);
  AddSet(app, context);
  AddFmt(app, context);
  AddPack(app, context);
  AddModules(app, context);
  AddLabels(app, context);
  AddSensors(app, context);
  AddTree(app, context);
  AddShow(app, context);
  AddDiff(app, context);
  AddWhich(app, context);
  AddReport(app, context);
  AddVerify(app, context);
  AddMigrate(app, context);
  AddSchema(app, context);
  AddVersion(app, context);
}

int Main(int argument_count, char** arguments) {
  OccupyStandardDescriptors();
  // A reader that goes away, as 'head' does, ends the output and not the job. A file that may not grow is an error to
  // be told, as a full disk is.
  (void)std::signal(SIGPIPE, SIG_IGN);
  (void)std::signal(SIGXFSZ, SIG_IGN);

  CommandContext context;
  CLI::App app("Makes, looks after and packs camera tuning projects.", "zotuning");
  app.footer(kFooter);
  app.set_version_flag("--version", "zotuning " ZOTUNING_VERSION " (commit " ZOTUNING_COMMIT ", protobuf " +
                                        google::protobuf::internal::VersionString(GOOGLE_PROTOBUF_VERSION) + ")");
  app.add_option("-C", context.project_dir,
                 "The project's folder (default: the nearest one from here up that holds ProjConf.bin)")
      ->type_name("DIR")
      ->check(NotEmpty());
  app.add_flag("--json", context.json, "Print one JSON object, results and messages, also on failure");
  app.add_flag("-v,--verbose", context.verbose, "Show what protobuf itself has to say on standard error");
  app.require_subcommand(1);
  app.add_subcommand("help", "Show the help of a command")->add_option("COMMAND", context.help, "The command");
  AddCommands(app, context);

  // "help version set" is "version set --help", and nothing at all is "--help".
  std::vector<char*> words(arguments, arguments + argument_count);
  char help_flag[] = "--help";
  if (argument_count == 1 || std::strcmp(arguments[1], "help") == 0) {
    if (argument_count > 1) words.erase(words.begin() + 1);
    if (IsCommand(app, words)) words.push_back(help_flag);
  }
  try {
    app.parse(static_cast<int>(words.size()), words.data());
  } catch (const CLI::Success& success) {  // --help, --version
    // Through the console, which notices what cannot be written.
    std::ostringstream text;
    (void)app.exit(success, text, text);
    context.console.Print(text.str());
    return context.console.Finish(kDone);
  } catch (const CLI::ParseError& error) {
    return FailUsage(app, context, error, argument_count, arguments);
  }

  g_verbose = context.verbose;
  google::protobuf::SetLogHandler(&HandleProtobufLine);
  context.console.Begin(context.command, context.json);
  int code = kFailed;
  try {
    code = context.run();
  } catch (const std::exception& error) {
    context.console.Report(Code::kInternal, std::string("stopped by an unexpected failure: ") + error.what());
  }
  return context.console.Finish(code);
}

}  // namespace
}  // namespace zotuning::tool

int main(int argument_count, char** arguments) try {
  return zotuning::tool::Main(argument_count, arguments);
} catch (...) {
  // No memory even for a message.
  (void)std::fputs("zotuning: error: stopped by an unexpected failure\n", stderr);
  return zotuning::tool::kFailed;
}
