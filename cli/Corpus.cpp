#include "Corpus.h"

#include "ExitStatus.h"
#include "Failure.h"
#include "corpus/CorpusError.h"
#include "corpus/Export.h"
#include "corpus/Merge.h"
#include "host/parser/Logger.h"

namespace Corvane::Cli {

namespace {

void s_addExport(CLI::App &corpus, CorpusExportArguments &arguments) {
    CLI::App *exported =
        corpus.add_subcommand("export", "Write a result as sorted JSON objects, one a line");
    exported->add_flag("--times", arguments.times,
                       "With the times that were measured, which differ from run to run");
    exported->add_option("RESULT", arguments.result, "The result of a run")
        ->required()
        ->type_name("");
    exported->footer("Exit status: 0 all was written; 2 it was not, and why is said.\n");
}

void s_addMerge(CLI::App &corpus, CorpusMergeArguments &arguments) {
    CLI::App *merged = corpus.add_subcommand("merge", "Make one result of those of all shards");
    merged->add_option("-o,--output", arguments.output, "The file that is to hold the result")
        ->required()
        ->type_name("RESULT");
    merged->add_option("RESULT", arguments.results, "Results of shards of one run")
        ->required()
        ->type_name("");
    merged->footer("Exit status: 0 the result is there; 2 it is not, and why is said.\n");
}

int s_export(const CorpusExportArguments &arguments, std::ostream &out) {
    Corpus::Result result = Corpus::Result::open(arguments.result, Corpus::Database::Mode::Read);
    exportResult(result, out, arguments.times);
    const int error = flushed(out);
    if (error != 0) {
        refuse("cannot write the result: " + systemReason(error));
    }
    return kExitClean;
}

int s_merge(const CorpusMergeArguments &arguments) {
    Corpus::merge(arguments.output, arguments.results);
    return kExitClean;
}

} // namespace

void addCorpusCommand(CLI::App &app, CorpusArguments &arguments) {
    CLI::App *corpus =
        app.add_subcommand("corpus", "Say what rules make of many messages of known classes");
    corpus->require_subcommand(1);
    addCorpusRunCommand(*corpus, arguments.run);
    addCorpusReportCommand(*corpus, arguments.report);
    addCorpusDiffCommand(*corpus, arguments.diff);
    addCorpusTuneCommand(*corpus, arguments.tune);
    s_addExport(*corpus, arguments.exported);
    s_addMerge(*corpus, arguments.merged);
}

int runCorpus(const std::string &name, const CorpusArguments &arguments, std::ostream &out,
              std::ostream &err) {
    try {
        if (name == "export") {
            return s_export(arguments.exported, out);
        }
        if (name == "report") {
            return runCorpusReport(arguments.report, out);
        }
        if (name == "diff") {
            return runCorpusDiff(arguments.diff, out);
        }
        if (name == "tune") {
            return runCorpusTune(arguments.tune, out);
        }
        return name == "merge" ? s_merge(arguments.merged) : runCorpusRun(arguments.run, out, err);
    } catch (const Exception &failure) {
        err << "corvane: " << readable(failure) << '\n';
    } catch (const Corpus::CorpusError &failure) {
        err << "corvane: " << Logger::printable(failure.what()) << '\n';
    }
    return kExitFailed;
}

} // namespace Corvane::Cli
