// The linear system beside SuiteSparse's ldl package, in the same run.
//
// For each problem, K = [ rho_x I , A' ; A , -I ] is built from the equilibrated A, ordered
// by AMD and permuted once; ours and ldl then work on the same permuted upper triangle C:
//   numeric    numericStep          vs ldl_numeric (arrays allocated beforehand)
//   factorise  factoriseSystem      vs allocation + ldl_symbolic + ldl_numeric
//   solve      solveWithFactors     vs ldl_perm + ldl_lsolve + ldl_dsolve + ldl_ltsolve + ldl_permt
//   solve-lt   solveWithFactors     vs ldl_lsolve + ldl_dsolve + ldl_ltsolve alone
// and the two products with A run beside a plain loop over the same bytes (the values,
// indices and column pointers of A, x, and y read and written once in order).
//
// The problems come from ../shared/bench (KORVEX_BENCH_DATA overrides the folder): A is
// read from a few CBF and SDPA files by a reader that keeps only the matrix (scalar rows
// of CBF, svec rows of SDPA; the variable cones of CBF become rows of their own). A
// generated grid problem has a factor of more than 2 million entries.
#include <benchmark/benchmark.h>

#include <amd.h>
extern "C" {
#include <ldl.h>  // a C header without its own linkage block
}

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "linsys/linsys.h"
#include "ratio_report.h"

using namespace korvex;

namespace {

// ---- Matrices -----------------------------------------------------------------

struct Triplet {
    int row;
    int col;
    double value;
};

// A matrix in compressed columns over vectors, with the record that views them.
struct OwnedMatrix {
    int m = 0;
    int n = 0;
    std::vector<int> p, i;
    std::vector<double> x;
    SparseMatrix view{};
    SparseMatrix* get() {
        view = SparseMatrix{x.data(), i.data(), p.data(), m, n};
        return &view;
    }
};

OwnedMatrix compressColumns(int m, int n, std::vector<Triplet> entries) {
    std::stable_sort(entries.begin(), entries.end(), [](const Triplet& a, const Triplet& b) { return a.col < b.col; });
    OwnedMatrix A;
    A.m = m;
    A.n = n;
    A.p.assign(n + 1, 0);
    for (const Triplet& t : entries) {
        ++A.p[t.col + 1];
        A.i.push_back(t.row);
        A.x.push_back(t.value);
    }
    for (int j = 0; j < n; ++j) A.p[j + 1] += A.p[j];
    return A;
}

// ---- Readers: just A ------------------------------------------------------------

// CBF: rows of CON carry -ACOORD; every VAR block other than F adds one row -x_j per
// variable, so that A x + s = b with s in the variable's cone. PSD parts are not read.
OwnedMatrix readCbf(const std::string& path) {
    std::ifstream in(path);
    std::string line;
    int n = 0, rows = 0;
    std::vector<Triplet> entries;
    std::vector<std::pair<std::string, int>> var_blocks;
    auto next = [&](std::string& text) {
        while (std::getline(in, text)) {
            if (!text.empty() && text[0] != '#' && text.find_first_not_of(" \t\r") != std::string::npos) return true;
        }
        return false;
    };
    while (next(line)) {
        std::istringstream keyword(line);
        std::string word;
        keyword >> word;
        if (word == "VER" || word == "OBJSENSE" || word == "OBJBCOORD") {
            next(line);  // one body line, which may look like a keyword
        } else if (word == "VAR" || word == "CON") {
            int count = 0, blocks = 0;
            next(line);
            std::istringstream(line) >> count >> blocks;
            for (int b = 0; b < blocks; ++b) {
                next(line);
                std::string cone;
                int size = 0;
                std::istringstream(line) >> cone >> size;
                if (word == "VAR") var_blocks.emplace_back(cone, size);
            }
            (word == "VAR" ? n : rows) = count;
        } else if (word == "ACOORD") {
            int count = 0;
            next(line);
            std::istringstream(line) >> count;
            for (int k = 0; k < count; ++k) {
                next(line);
                Triplet t{};
                std::istringstream(line) >> t.row >> t.col >> t.value;
                t.value = -t.value;
                entries.push_back(t);
            }
        }
    }
    int variable = 0;
    for (const auto& [cone, size] : var_blocks) {
        for (int k = 0; k < size; ++k, ++variable) {
            if (cone != "F") entries.push_back({rows++, variable, -1.0});
        }
    }
    return compressColumns(rows, n, std::move(entries));
}

// SDPA sparse: A = -[svec(F_1) ... svec(F_m)], each block packed by its lower triangle
// (off-diagonal entries times sqrt 2), a diagonal block by its diagonal.
OwnedMatrix readSdpa(const std::string& path) {
    std::ifstream in(path);
    std::string line, text;
    while (std::getline(in, line)) {
        if (!line.empty() && line[0] != '"' && line[0] != '*') break;
    }
    text = line;
    while (std::getline(in, line)) text += "\n" + line;
    for (char& ch : text) {
        if (ch == ',' || ch == '(' || ch == ')' || ch == '{' || ch == '}') ch = ' ';
    }
    std::istringstream tokens(text);
    int m = 0, block_count = 0;
    tokens >> m;
    tokens.ignore(1 << 20, '\n');
    tokens >> block_count;
    tokens.ignore(1 << 20, '\n');
    std::vector<int> sizes(block_count), offsets(block_count + 1, 0);
    for (int b = 0; b < block_count; ++b) {
        tokens >> sizes[b];
        const int side = std::abs(sizes[b]);
        offsets[b + 1] = offsets[b] + (sizes[b] < 0 ? side : side * (side + 1) / 2);
    }
    for (int k = 0; k < m; ++k) {
        double c = 0.0;
        tokens >> c;
    }
    std::vector<Triplet> entries;
    int matrix = 0, block = 0, r = 0, s = 0;
    double value = 0.0;
    while (tokens >> matrix >> block >> r >> s >> value) {
        if (matrix == 0) continue;  // F_0 is b
        const int side = std::abs(sizes[block - 1]);
        const int lo = std::min(r, s) - 1, hi = std::max(r, s) - 1;
        // packed lower triangle by columns: column lo starts after lo columns of lengths side, side-1, ...
        const int packed = sizes[block - 1] < 0 ? lo : lo * side - lo * (lo - 1) / 2 + (hi - lo);
        entries.push_back({offsets[block - 1] + packed, matrix - 1, lo == hi ? -value : -std::sqrt(2.0) * value});
    }
    return compressColumns(offsets[block_count], m, std::move(entries));
}

// The weighted gradient of a side x side grid: one row per edge between neighbouring
// nodes, w at one end and -w at the other, w drawn from [0.5, 1.5]. Its K is the
// saddle-point matrix of a 2-D network flow, whose factor fills like a 2-D mesh.
OwnedMatrix gridGradient(int side, std::uint32_t seed) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> weight(0.5, 1.5);
    std::vector<Triplet> entries;
    int rows = 0;
    for (int r = 0; r < side; ++r) {
        for (int c = 0; c < side; ++c) {
            const int node = r * side + c;
            for (int neighbour : {c + 1 < side ? node + 1 : -1, r + 1 < side ? node + side : -1}) {
                if (neighbour < 0) continue;
                const double w = weight(random);
                entries.push_back({rows, node, w});
                entries.push_back({rows++, neighbour, -w});
            }
        }
    }
    return compressColumns(rows, side * side, std::move(entries));
}

// ---- One problem: K, its ordering and C ------------------------------------------------

struct CsRelease {
    void operator()(cs* matrix) const noexcept { cs_spfree(matrix); }
};
using CsMatrix = std::unique_ptr<cs, CsRelease>;

struct Problem {
    std::string name;
    OwnedMatrix A;  // as read
    SparseMatrix* normalised = nullptr;
    Scaling scaling{};
    Settings settings{};
    std::vector<int> perm;
    CsMatrix C;  // upper triangle of P K P'
    int N = 0;
    int factor_entries = 0;  // ldl's Lp[N]
    ~Problem() { freeMatrix(normalised); }
};

// Equilibrates A as a solve would (all rows taken as non-negative-cone rows), builds K,
// orders it and permutes it. Null when the file could not be read.
std::unique_ptr<Problem> prepare(std::string name, OwnedMatrix A) {
    if (A.n == 0 || A.m == 0) return nullptr;
    auto problem = std::make_unique<Problem>();
    problem->name = std::move(name);
    problem->A = std::move(A);
    setDefaultSettings(&problem->settings);
    Cone cone{};
    cone.linear_vars = problem->A.m;
    problem->normalised = copyMatrix(problem->A.get());
    normalizeMatrix(problem->normalised, &problem->settings, &cone, &problem->scaling);
    CsMatrix K(assembleSystemMatrix(problem->normalised, &problem->settings));
    const int N = K->n;
    problem->N = N;
    problem->perm.resize(N);
    double report[AMD_INFO];
    amd_order(N, K->p, K->i, problem->perm.data(), nullptr, report);
    int* inverse = cs_pinv(problem->perm.data(), N);
    problem->C.reset(cs_symperm(K.get(), inverse, 1));
    cs_free(inverse);
    return problem;
}

// The arrays of ldl's factorisation of C.
struct LdlFactor {
    std::vector<int> Lp, parent, Lnz, flag, Li, pattern;
    std::vector<double> Lx, D, Y;
    explicit LdlFactor(const Problem& problem) {
        const int N = problem.N;
        Lp.resize(N + 1);
        parent.resize(N);
        Lnz.resize(N);
        flag.resize(N);
        pattern.resize(N);
        D.resize(N);
        Y.resize(N);
        ldl_symbolic(N, problem.C->p, problem.C->i, Lp.data(), parent.data(), Lnz.data(), flag.data(), nullptr,
                     nullptr);
        Li.resize(Lp[N] + 1);
        Lx.resize(Lp[N] + 1);
    }
    int numeric(const Problem& problem) {
        return ldl_numeric(problem.N, problem.C->p, problem.C->i, problem.C->x, Lp.data(), parent.data(), Lnz.data(),
                           Li.data(), Lx.data(), D.data(), Y.data(), pattern.data(), flag.data(), nullptr, nullptr);
    }
};

struct PrivRelease {
    void operator()(LinSysWork* p) const noexcept { releasePriv(p); }
};
using Factor = std::unique_ptr<LinSysWork, PrivRelease>;

void setFactorCounters(benchmark::State& state, const Problem& problem) {
    state.counters["N"] = problem.N;
    state.counters["nnzL"] = problem.factor_entries;
}

// ---- Benchmarks -----------------------------------------------------------------

void oursNumeric(benchmark::State& state, const Problem* problem) {
    Factor p(createRecord<LinSysWork>());
    factoriseSystem(problem->C.get(), p.get());  // sizes every array
    const int N = problem->N;
    std::vector<int> parent(N), Lnz(N), flag(N), pattern(N);
    std::vector<double> Y(N, 0.0);
    symbolicStep(N, problem->C->p, problem->C->i, p->L->p, parent.data(), Lnz.data(), flag.data());
    for (auto _ : state) {
        const int result = numericStep(N, problem->C.get(), p->L->p, parent.data(), Lnz.data(), p->L->i, p->L->x,
                                       p->diag.get(), Y.data(), pattern.data(), flag.data());
        if (result != N) state.SkipWithError("factorisation failed");
        benchmark::ClobberMemory();
    }
    setFactorCounters(state, *problem);
}

void refNumeric(benchmark::State& state, const Problem* problem) {
    LdlFactor ldl(*problem);
    for (auto _ : state) {
        if (ldl.numeric(*problem) != problem->N) state.SkipWithError("factorisation failed");
        benchmark::ClobberMemory();
    }
    setFactorCounters(state, *problem);
}

void oursFactorise(benchmark::State& state, const Problem* problem) {
    for (auto _ : state) {
        Factor p(createRecord<LinSysWork>());
        if (factoriseSystem(problem->C.get(), p.get()) != 0) state.SkipWithError("factorisation failed");
        benchmark::DoNotOptimize(p->diag.get());
    }
    setFactorCounters(state, *problem);
}

void refFactorise(benchmark::State& state, const Problem* problem) {
    for (auto _ : state) {
        LdlFactor ldl(*problem);  // allocation + ldl_symbolic
        if (ldl.numeric(*problem) != problem->N) state.SkipWithError("factorisation failed");
        benchmark::DoNotOptimize(ldl.D.data());
    }
    setFactorCounters(state, *problem);
}

std::vector<double> rightHandSide(int N) {
    std::vector<double> rhs(N);
    for (int k = 0; k < N; ++k) rhs[k] = std::sin(0.1 * k);
    return rhs;
}

void oursSolve(benchmark::State& state, const Problem* problem) {
    Factor p(createRecord<LinSysWork>());
    factoriseSystem(problem->C.get(), p.get());
    p->perm.allocate(problem->N);
    std::memcpy(p->perm.get(), problem->perm.data(), sizeof(int) * problem->N);
    p->rhs_work.allocate(problem->N);
    const std::vector<double> rhs = rightHandSide(problem->N);
    std::vector<double> z(problem->N);
    for (auto _ : state) {
        std::memcpy(z.data(), rhs.data(), sizeof(double) * problem->N);
        solveWithFactors(nullptr, nullptr, p.get(), z.data(), nullptr, 0);
        benchmark::ClobberMemory();
    }
    setFactorCounters(state, *problem);
}

void refSolve(benchmark::State& state, const Problem* problem, bool permute) {
    LdlFactor ldl(*problem);
    ldl.numeric(*problem);
    const int N = problem->N;
    const std::vector<double> rhs = rightHandSide(N);
    std::vector<double> z(N), work(N);
    int* P = const_cast<int*>(problem->perm.data());
    for (auto _ : state) {
        std::memcpy(z.data(), rhs.data(), sizeof(double) * N);
        double* x = permute ? work.data() : z.data();
        if (permute) ldl_perm(N, x, z.data(), P);
        ldl_lsolve(N, x, ldl.Lp.data(), ldl.Li.data(), ldl.Lx.data());
        ldl_dsolve(N, x, ldl.D.data());
        ldl_ltsolve(N, x, ldl.Lp.data(), ldl.Li.data(), ldl.Lx.data());
        if (permute) ldl_permt(N, z.data(), x, P);
        benchmark::ClobberMemory();
    }
    setFactorCounters(state, *problem);
}

void setProductBytes(benchmark::State& state, const SparseMatrix* A) {
    const std::int64_t nnz = A->p[A->n];
    const std::int64_t bytes = nnz * 12 + (A->n + 1) * 4 + A->n * 8 + A->m * 16;
    state.SetBytesProcessed(state.iterations() * bytes);
}

void oursMultiplyAddA(benchmark::State& state, const Problem* problem) {
    const SparseMatrix* A = problem->normalised;
    const std::vector<double> x = rightHandSide(A->n);
    std::vector<double> y(A->m, 0.0);
    for (auto _ : state) {
        multiplyAddA(A, x.data(), y.data());
        benchmark::ClobberMemory();
    }
    setProductBytes(state, A);
}

void oursMultiplyAddAt(benchmark::State& state, const Problem* problem) {
    const SparseMatrix* A = problem->normalised;
    const std::vector<double> x = rightHandSide(A->m);
    std::vector<double> y(A->n, 0.0);
    for (auto _ : state) {
        multiplyAddAt(A, x.data(), y.data());
        benchmark::ClobberMemory();
    }
    setProductBytes(state, A);
}

// The bytes of a product, streamed in order as 64- and 32-bit integers: values and row
// indices of A, column pointers, the n-vector, and the m-vector read and written.
void refProductBytes(benchmark::State& state, const Problem* problem) {
    const SparseMatrix* A = problem->normalised;
    const int nnz = A->p[A->n];
    std::vector<std::uint64_t> values(nnz, 3), x(A->n, 5), y(A->m, 7);
    for (auto _ : state) {
        std::uint64_t acc = 0;
        for (int q = 0; q < nnz; ++q) acc += values[q] ^ static_cast<std::uint64_t>(A->i[q]);
        for (int j = 0; j < A->n; ++j) acc += x[j] + static_cast<std::uint64_t>(A->p[j]);
        for (int i = 0; i < A->m; ++i) y[i] += acc;
        benchmark::DoNotOptimize(acc);
        benchmark::ClobberMemory();
    }
    setProductBytes(state, A);
}

void registerProblem(const Problem* problem) {
    const std::string& name = problem->name;
    auto add = [&](const std::string& run, auto function) {
        benchmark::RegisterBenchmark(run.c_str(), function)->Unit(benchmark::kMicrosecond)->MinTime(0.2);
    };
    add("ours/numeric/" + name, [problem](benchmark::State& s) { oursNumeric(s, problem); });
    add("ref/numeric/" + name, [problem](benchmark::State& s) { refNumeric(s, problem); });
    add("ours/factorise/" + name, [problem](benchmark::State& s) { oursFactorise(s, problem); });
    add("ref/factorise/" + name, [problem](benchmark::State& s) { refFactorise(s, problem); });
    add("ours/solve/" + name, [problem](benchmark::State& s) { oursSolve(s, problem); });
    add("ref/solve/" + name, [problem](benchmark::State& s) { refSolve(s, problem, true); });
    add("ours/solve-lt/" + name, [problem](benchmark::State& s) { oursSolve(s, problem); });
    add("ref/solve-lt/" + name, [problem](benchmark::State& s) { refSolve(s, problem, false); });
    add("ours/multiplyAddA/" + name, [problem](benchmark::State& s) { oursMultiplyAddA(s, problem); });
    add("ref/multiplyAddA/" + name, [problem](benchmark::State& s) { refProductBytes(s, problem); });
    add("ours/multiplyAddAt/" + name, [problem](benchmark::State& s) { oursMultiplyAddAt(s, problem); });
    add("ref/multiplyAddAt/" + name, [problem](benchmark::State& s) { refProductBytes(s, problem); });
}

std::string dataFolder() {
    if (const char* folder = std::getenv("KORVEX_BENCH_DATA")) return folder;
    std::string here = __FILE__;  // <repository>/bench/linsys_bench.cpp
    here = here.substr(0, here.find_last_of('/'));
    return here.substr(0, here.find_last_of('/')) + "/../shared/bench";
}

}  // namespace

int main(int argc, char** argv) {
    const std::string folder = dataFolder();
    const struct {
        const char* name;
        const char* file;
    } files[] = {{"nql30", "socp/nql30.cbf"},
                 {"qssp30", "socp/qssp30.cbf"},
                 {"sched_100_50", "socp/sched_100_50_orig.cbf"},
                 {"nb_L1", "socp/nb_L1.cbf"},
                 {"control3", "sdp/control3.dat-s"}};
    std::vector<std::unique_ptr<Problem>> problems;
    for (const auto& entry : files) {
        const std::string path = folder + "/" + entry.file;
        const bool sdpa = std::string(entry.file).find(".dat-s") != std::string::npos;
        auto problem = prepare(entry.name, sdpa ? readSdpa(path) : readCbf(path));
        if (!problem) std::fprintf(stderr, "skipped %s: nothing read\n", path.c_str());
        if (problem) problems.push_back(std::move(problem));
    }
    problems.push_back(prepare("grid", gridGradient(300, 42)));
    for (auto& problem : problems) problem->factor_entries = LdlFactor(*problem).Lp[problem->N];

    std::printf("%-14s %9s %9s %11s\n", "problem", "N", "nnz(A)", "nnz(L)");
    for (const auto& problem : problems) {
        std::printf("%-14s %9d %9d %11d\n", problem->name.c_str(), problem->N, problem->A.p[problem->A.n],
                    problem->factor_entries);
        registerProblem(problem.get());
    }
    return runBenchmarksWithRatios(argc, argv, "Linear system against SuiteSparse ldl on the same permuted K");
}
