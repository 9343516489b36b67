#include <cstddef>
#include <cstdint>

#include "Require.h"
#include "RuleChecks.h"
#include "heuristic/BodyRule.h"
#include "heuristic/RuleFactory.h"
#include "host/parser/Media.h"

namespace {

using namespace Corvane;

void s_parse(Heuristic::RuleFileParser &parser, const Buffer &text) {
    TempFileMediaOut file("/tmp/corvane-fuzzXXXXXX", true);
    file.write(text);
    file.end();
    const Ref<TempFile> name = file.tmpfile();
    file.close();
    parser.parse(name->name());
}

} // namespace

// The input is a rule file; the rules that come out of it are tried on the file's own text.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    static const bool s_silent = (Heuristic::silenceLog(), true);
    require(s_silent, "the log is silent");

    const Buffer text(data, static_cast<unsigned int>(size), true);
    Heuristic::RuleContainer rules;
    Heuristic::RuleFileParser parser(rules);
    s_parse(parser, text);
    parser.assignScores();
    for (int language = Heuristic::DEFAULT; language < Heuristic::ALL; ++language) {
        auto matches = Heuristic::RefMatches::create();
        Heuristic::RefRuleList list(rules.bodyRules(static_cast<Heuristic::langID>(language)),
                                    true);
        const std::size_t before = list->size();
        Heuristic::BodyCheck(list, matches, 0, false).check(text, false);
        require(list->size() <= before && matches->size() <= before, "a rule counts once");
    }
    return 0;
}
