#include "JobSummary.h"

#include <algorithm>

#include "Output.h"

namespace vxcloud::cli {

namespace {

std::string plural(std::size_t count, const std::string& word) {
    return std::to_string(count) + " " + word + (count == 1 ? "" : "s");
}

bool reachedIt(const AccountOutcome& account) {
    return account.kind == AccountOutcome::Kind::done || account.kind == AccountOutcome::Kind::unchanged;
}

std::string accountLines(const DocumentOutcome& document, bool everyAccount) {
    const auto reached = std::count_if(document.accounts.begin(), document.accounts.end(), reachedIt);
    std::size_t labelWidth = 0;
    for (const auto& account : document.accounts) labelWidth = std::max(labelWidth, displayWidth(printable(account.label)));
    std::string out = printable(document.name) + ": done on " + std::to_string(reached) + " of " +
                      plural(document.accounts.size(), "account") + "\n";
    for (const auto& account : document.accounts) {
        if (!everyAccount && reachedIt(account)) continue;
        const std::string label = printable(account.label);
        const std::string what = account.shown.empty() ? account.word() : account.shown;
        out += "  " + label + std::string(labelWidth - displayWidth(label) + 2, ' ') + printable(what) + "\n";
    }
    return out;
}

}  // namespace

std::string jobSummary(const JobReport& report, bool ok, bool quiet) {
    std::string out;
    std::size_t good = 0;
    for (const auto& document : report.documents) {
        if (document.ok()) {
            ++good;
        } else if (!document.accounts.empty()) {
            out += accountLines(document, quiet);
        }
    }
    if (quiet || report.documents.size() > 1 || !ok) {
        out += std::to_string(good) + " of " + plural(report.documents.size(), "document") + " done" +
               (ok ? "." : "; see above for the rest.") + "\n";
    }
    return out;
}

}  // namespace vxcloud::cli
