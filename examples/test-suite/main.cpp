// SPDX-License-Identifier: Apache-2.0
// gate-cameras SERIAL...: looks at the cameras, of which these are known.
#include "gate.h"

#include <cstdio>

int main(int count, char** words)
{
    const auto findings = gate::inspect({words + 1, words + count});
    std::fputs(gate::report(findings).c_str(), stdout);
    for (const gate::Finding& finding : findings) {
        if (finding.verdict != gate::Verdict::kFit)
            return 1;
    }
    return findings.empty() ? 1 : 0;
}
