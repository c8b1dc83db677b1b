// The Marlet iteration beside the standard iteration on the same problems in the same
// run: iterations and time (set-up plus solve) to reach eps 1e-4 and 1e-6, and the
// status. Problems are generated in code (generated_problems.h); run with the name of one
// family to restrict the list ("tv", "lp", "maxcut", "entropy").
#include <cmath>
#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <vector>

#include "core/solver.h"
#include "generated_problems.h"
#include "reporting/allocation.h"

using namespace korvex;

namespace {

struct Outcome {
    int status = 0;
    int iter = 0;
    double ms = 0.0;
    double pobj = 0.0;
};

Outcome solve(GeneratedProblem& p, int marlet, double eps) {
    p.settings.do_super_korvex = marlet;
    p.settings.eps = eps;
    p.settings.max_iters = 100000;
    Solution solution{};
    Info info{};
    const int status = solveConeProgram(&p.data, &p.cone, &solution, &info);
    releaseMemory(solution.x);
    releaseMemory(solution.y);
    releaseMemory(solution.s);
    return {status, info.iter, info.setupTime + info.solveTime, info.pobj};
}

}  // namespace

int main(int argc, char** argv) {
    const char* only = argc > 1 ? argv[1] : "";
    std::vector<std::function<std::unique_ptr<GeneratedProblem>()>> makers = {
        [] { return totalVariation(20); },    [] { return totalVariation(50); },
        [] { return randomLp(200, 100, 1); }, [] { return randomLp(1000, 500, 2); },
        [] { return maxCut(20, 3); },
        [] { return maxCut(50, 4); },         [] { return entropy(50, 10, 5); },
        [] { return entropy(400, 40, 6); },
    };
    std::printf("%-14s %6s %6s | %-28s | %-28s | %s\n", "problem", "m", "n", "eps 1e-4: standard / Marlet",
                "eps 1e-6: standard / Marlet", "objective");
    for (auto& make : makers) {
        std::unique_ptr<GeneratedProblem> p = make();
        if (std::strncmp(p->name.c_str(), only, std::strlen(only)) != 0) continue;
        std::printf("%-14s %6d %6d |", p->name.c_str(), p->m, p->n);
        double objective = NAN;
        for (double eps : {1e-4, 1e-6}) {
            const Outcome standard = solve(*p, 0, eps);
            const Outcome marlet = solve(*p, 1, eps);
            std::printf(" %5d %8.1fms / %4d %8.1fms |", standard.iter, standard.ms, marlet.iter, marlet.ms);
            if (standard.status != KORVEX_SOLVED || marlet.status != KORVEX_SOLVED) {
                std::printf(" (status %d / %d)", standard.status, marlet.status);
            }
            objective = marlet.pobj;
        }
        std::printf(" %.6g\n", objective);
        std::fflush(stdout);
    }
    return 0;
}
