#include <utility>

#include "Report.h"

namespace Corvane::Cli {

namespace {

class JsonReport final : public Report {
public:
    JsonReport(std::ostream &out, ReportContext context)
        : out_(out), context_(std::move(context)) {}

    void message(const MessageResult &result) override {
        const Reporting::MessageLabel label{result.file, result.index, result.failure,
                                            context_.verbose};
        out_ << jsonOf(result.verdict, result.rules.value_or(context_.rules), label) << '\n';
    }

    void summary(const Totals & /*totals*/) override {}

private:
    std::ostream &out_;
    ReportContext context_;
};

} // namespace

std::unique_ptr<Report> makeJsonReport(std::ostream &out, ReportContext context) {
    return std::make_unique<JsonReport>(out, std::move(context));
}

} // namespace Corvane::Cli
