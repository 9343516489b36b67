#include "Decrypt.h"

namespace Corvane::Cli {

void addDecryptCommand(CLI::App &app, RuleSetCopyOptions &options) {
    addRuleSetCopyOptions(
        *app.add_subcommand("decrypt", "Write a plain copy of an encrypted rule set"), options);
}

int runDecrypt(const RuleSetCopyOptions &options, std::ostream &out, std::ostream &err) {
    return copyRuleSet(options, Conversion::Decrypt, out, err);
}

} // namespace Corvane::Cli
