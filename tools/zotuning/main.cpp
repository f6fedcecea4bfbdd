// zotuning, the console tool of the tuning library: reads the command line, runs one command, prints its report.

#include <fcntl.h>
#include <unistd.h>

#include <google/protobuf/stubs/common.h>
#include <algorithm>

#include <csignal>
#include <cstdio>
#include <exception>
#include <string>
#include <utility>
#include <vector>

#include "commands.h"
#include "library_log.h"
#include "suggest.h"
#include "zotuning_version.h"

namespace zotuning_tool {

CLI::App* AddCommand(CLI::App& app, Session& session, const std::string& name, const std::string& summary,
                     const std::string& help, std::function<int()> run) {
  CLI::App* command = app.add_subcommand(name, summary);
  command->footer(help + "\n\nEvery command also takes -C DIR, --json and -v; see 'zotuning --help'.\n");
  command->fallthrough();
  const std::string full_name = app.get_parent() == nullptr ? name : app.get_name() + " " + name;
  command->callback([&session, full_name, run = std::move(run)] {
    session.command = full_name;
    session.run = run;
  });
  return command;
}

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

int FailUsage(CLI::App& app, Session& session, const CLI::ParseError& error, int argument_count, char** arguments) {
  std::string message = error.what();
  std::vector<std::string> words;
  const CLI::App* at = &app;
  std::string command;
  for (int i = 1; i < argument_count; ++i) {
    words.emplace_back(arguments[i]);
    if (words.back() == "--json") session.json = true;
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
  session.report.Begin(command, session.json);
  session.report.Error("usage", message, "see 'zotuning" + (command.empty() ? "" : " " + command) + " --help'");
  return session.report.Finish(kMisuse);
}

/// A standard descriptor that is closed would go to the next file opened, and what is printed into that file. What
/// stands in its place fails reads and writes as the closed one does.
void OccupyStandardDescriptors() {
  for (const int number : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(number, F_GETFD) == -1) (void)!open("/dev/null", number == STDIN_FILENO ? O_WRONLY : O_RDONLY);
  }
}

int Main(int argument_count, char** arguments) {
  OccupyStandardDescriptors();
  // A reader that goes away, as 'head' does, ends the output and not the job. A file that may not grow is an error to
  // be told, as a full disk is.
  (void)std::signal(SIGPIPE, SIG_IGN);
  (void)std::signal(SIGXFSZ, SIG_IGN);

  Session session;
  CLI::App app("Makes, looks after and packs camera tuning projects.", "zotuning");
  app.footer(kFooter);
  app.set_version_flag("--version", "zotuning " ZOTUNING_VERSION " (commit " ZOTUNING_COMMIT ", protobuf " +
                                        google::protobuf::internal::VersionString(GOOGLE_PROTOBUF_VERSION) + ")");
  app.add_option("-C", session.project_dir,
                 "The project's folder (default: the nearest one from here up that holds ProjConf.bin)")
      ->type_name("DIR")
      ->check(NotEmpty());
  app.add_flag("--json", session.json, "Print one JSON object, results and messages, also on failure");
  app.add_flag("-v,--verbose", session.verbose, "Show the library's own lines on standard error");
  app.require_subcommand(1);
  AddInit(app, session);
  AddTemplate(app, session);
  AddNew(app, session);
  AddPack(app, session);
  AddModules(app, session);
  AddLabels(app, session);
  AddSensors(app, session);
  AddTree(app, session);
  AddShow(app, session);
  AddVerify(app, session);
  AddVersion(app, session);

  try {
    app.parse(argument_count, arguments);
  } catch (const CLI::Success& success) {  // --help, --version
    app.exit(success);
    return session.report.Finish(kDone);
  } catch (const CLI::ParseError& error) {
    return FailUsage(app, session, error, argument_count, arguments);
  }

  ShowLibraryLines(session.verbose);
  session.report.Begin(session.command, session.json);
  int code = kFailed;
  try {
    code = session.run();
  } catch (const std::exception& error) {
    session.report.Error("internal", std::string("stopped by an unexpected failure: ") + error.what());
  }
  return session.report.Finish(code);
}

}  // namespace
}  // namespace zotuning_tool

int main(int argument_count, char** arguments) try {
  return zotuning_tool::Main(argument_count, arguments);
} catch (...) {
  // No memory even for a message.
  (void)std::fputs("zotuning: error: stopped by an unexpected failure\n", stderr);
  return zotuning_tool::kFailed;
}
