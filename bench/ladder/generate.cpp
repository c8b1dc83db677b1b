// ladder_generate: the scaling ladder, five families of cone programs at five sizes each,
// written as files that any solver can read: CBF for all, SDPA sparse for the
// semidefinite ones as well. Every number comes from a fixed seed through mt19937_64 and
// our own conversions to uniform and normal deviates, so that the files are the same
// bytes on every machine and with every standard library.
//
//   ladder_generate [--out DIR] [--max-size K] [--family NAME]... [--list] [--force]
//
// DIR (default $KORVEX_LADDER_DIR, else /work/ladder-data) gets one folder per family
// and, beside each problem file, NAME.info: one line of tab-separated figures (family,
// name, size, n, m, nnz(A), cones, files). Files already present are kept, so an
// interrupted run resumes where it stopped; --force writes them again. --max-size K
// stops each family at its K-th size. --list prints the instances (and writes none).
//
// The families, in the solver's form  min c'x  s.t.  A x + s = b,  s in K:
//   tv      total-variation denoising (ROF) of a side x side image: per pixel
//           (x - f)^2 <= q and |grad x| <= t in cones of 3, min sum q / 2 + lambda sum t;
//   lasso   min |A x - y|^2 / 2 + lambda |x|_1 with a wide sparse design (p >> m,
//           ten entries per column), the residual z = A x - y in one cone of m + 2;
//   mc      nuclear-norm matrix completion of a rank-3 side x side matrix from 20 % of
//           its entries: max -tr(Z) / 2 s.t. Z = [W1 X; X' W2] psd, X_ij = M_ij,
//           in SDPA's form (one block of side 2 side, one constraint per entry seen);
//   maxcut  the semidefinite relaxation of max-cut on a random graph of mean degree 8:
//           max <L, X> / 4 s.t. diag X = 1, X psd (one block, one constraint per node);
//   logreg  l1-regularised logistic regression with sparse features, two exponential
//           triples per sample: t >= log(1 + exp(-y a'w)) as exp(-y a'w - t) + exp(-t) <= 1.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "io/readers.h"

namespace {

namespace fs = std::filesystem;

// ---------------------------------------------------------------- random numbers

struct Random {
    std::mt19937_64 engine;
    explicit Random(std::uint64_t seed) : engine(seed) {}

    // Uniform on [0, 1) from the top 53 bits.
    double uniform() { return static_cast<double>(engine() >> 11) * 0x1.0p-53; }
    // Uniform integer in [0, n).
    std::int64_t below(std::int64_t n) { return static_cast<std::int64_t>(uniform() * static_cast<double>(n)); }
    // Standard normal by Box-Muller, one value per call.
    double normal() {
        const double u = 1.0 - uniform();  // in (0, 1]
        const double v = uniform();
        return std::sqrt(-2.0 * std::log(u)) * std::cos(2.0 * 3.141592653589793 * v);
    }
};

// ---------------------------------------------------------------- a problem in the making

// Entries of A as triplets, compressed by columns when the problem is finished.
struct Triplets {
    std::vector<std::int32_t> rows, cols;
    std::vector<double> values;
    void add(std::int64_t row, std::int64_t col, double value) {
        rows.push_back(static_cast<std::int32_t>(row));
        cols.push_back(static_cast<std::int32_t>(col));
        values.push_back(value);
    }
};

// Fills p.column_starts, p.row_indices and p.values from the triplets (no repeats), rows
// sorted within each column, and marks every column a scalar variable of the file.
void compress(Triplets& t, ConicProblem& p) {
    const std::size_t count = t.values.size();
    p.column_starts.assign(static_cast<std::size_t>(p.n) + 1, 0);
    for (std::int32_t col : t.cols) ++p.column_starts[static_cast<std::size_t>(col) + 1];
    for (std::int32_t j = 0; j < p.n; ++j) p.column_starts[j + 1] += p.column_starts[j];
    std::vector<std::int32_t> next(p.column_starts.begin(), p.column_starts.end() - 1);
    p.row_indices.resize(count);
    p.values.resize(count);
    for (std::size_t e = 0; e < count; ++e) {
        const std::int32_t slot = next[t.cols[e]]++;
        p.row_indices[slot] = t.rows[e];
        p.values[slot] = t.values[e];
    }
    t = Triplets{};
    std::vector<std::pair<std::int32_t, double>> column;
    for (std::int32_t j = 0; j < p.n; ++j) {
        const std::int32_t first = p.column_starts[j], end = p.column_starts[j + 1];
        column.clear();
        for (std::int32_t e = first; e < end; ++e) column.push_back({p.row_indices[e], p.values[e]});
        std::sort(column.begin(), column.end());
        for (std::int32_t e = first; e < end; ++e) {
            p.row_indices[e] = column[e - first].first;
            p.values[e] = column[e - first].second;
        }
    }
    p.scalar_variables = p.n;
    p.format = "generated";
}

// k distinct integers from [0, n), in increasing order (k much smaller than n).
std::vector<std::int64_t> distinct(Random& random, std::int64_t n, int k) {
    std::vector<std::int64_t> picked;
    while (static_cast<int>(picked.size()) < k) {
        const std::int64_t candidate = random.below(n);
        if (std::find(picked.begin(), picked.end(), candidate) == picked.end()) picked.push_back(candidate);
    }
    std::sort(picked.begin(), picked.end());
    return picked;
}

// ---------------------------------------------------------------- the families

// Total-variation denoising of a side x side image: a disc and a square on a ramp, with
// N(0, 0.2^2) noise. Variables x (pixels), t (gradient norms), q (squared errors).
ConicProblem totalVariation(std::int64_t side) {
    const std::int64_t P = side * side;
    const double lambda = 0.2;
    Random random(1001);
    ConicProblem p;
    p.n = static_cast<std::int32_t>(3 * P);
    p.m = static_cast<std::int32_t>(6 * P);
    p.b.assign(static_cast<std::size_t>(p.m), 0.0);
    p.c.assign(static_cast<std::size_t>(p.n), 0.0);
    Triplets a;
    for (std::int64_t pixel = 0; pixel < P; ++pixel) {
        const std::int64_t r = pixel / side, col = pixel % side;
        const double u = (static_cast<double>(r) + 0.5) / static_cast<double>(side);
        const double v = (static_cast<double>(col) + 0.5) / static_cast<double>(side);
        double clean = 0.3 * u;
        if ((u - 0.4) * (u - 0.4) + (v - 0.35) * (v - 0.35) < 0.04) clean += 1.0;
        if (u > 0.55 && u < 0.85 && v > 0.55 && v < 0.9) clean += 0.6;
        const double f = clean + 0.2 * random.normal();
        const std::int64_t x = pixel, t = P + pixel, q = 2 * P + pixel;
        // ||(2 (x - f), q - 1)|| <= q + 1, i.e. (x - f)^2 <= q
        const std::int64_t fid = 6 * pixel;
        a.add(fid, q, -1.0);
        p.b[fid] = 1.0;
        a.add(fid + 1, x, -2.0);
        p.b[fid + 1] = -2.0 * f;
        a.add(fid + 2, q, -1.0);
        p.b[fid + 2] = -1.0;
        // ||(x_right - x, x_down - x)|| <= t; the border pixels keep a zero row
        const std::int64_t grad = fid + 3;
        a.add(grad, t, -1.0);
        if (col + 1 < side) {
            a.add(grad + 1, x, 1.0);
            a.add(grad + 1, x + 1, -1.0);
        }
        if (r + 1 < side) {
            a.add(grad + 2, x, 1.0);
            a.add(grad + 2, x + side, -1.0);
        }
        p.c[t] = lambda;
        p.c[q] = 0.5;
    }
    p.soc_sizes.assign(static_cast<std::size_t>(2 * P), 3);
    compress(a, p);
    return p;
}

// The lasso: design m x features with ten N(0, 1/10) entries per column, a sparse truth
// of m / 10 entries of +-1, y = A x_true + N(0, 0.01^2), lambda a tenth of |A'y|_inf
// (the least lambda at which x = 0 is optimal). Variables x, t (|x| <= t), z = A x - y, q.
ConicProblem lasso(std::int64_t m, std::int64_t features) {
    const int per_column = 10;
    Random random(2002);
    std::vector<std::vector<std::int64_t>> rows(static_cast<std::size_t>(features));
    std::vector<std::vector<double>> values(static_cast<std::size_t>(features));
    for (std::int64_t j = 0; j < features; ++j) {
        rows[j] = distinct(random, m, per_column);
        for (int k = 0; k < per_column; ++k) values[j].push_back(random.normal() / std::sqrt(per_column));
    }
    std::vector<double> y(static_cast<std::size_t>(m), 0.0);
    for (std::int64_t k = 0; k < m / 10; ++k) {
        const std::int64_t j = random.below(features);
        const double sign = random.uniform() < 0.5 ? -1.0 : 1.0;
        for (int e = 0; e < per_column; ++e) y[rows[j][e]] += sign * values[j][e];
    }
    for (double& entry : y) entry += 0.01 * random.normal();
    double lambda_max = 0.0;
    for (std::int64_t j = 0; j < features; ++j) {
        double dot = 0.0;
        for (int e = 0; e < per_column; ++e) dot += values[j][e] * y[rows[j][e]];
        lambda_max = std::max(lambda_max, std::fabs(dot));
    }
    const double lambda = 0.1 * lambda_max;

    ConicProblem p;
    const std::int64_t x = 0, t = features, z = 2 * features, q = 2 * features + m;
    p.n = static_cast<std::int32_t>(2 * features + m + 1);
    p.m = static_cast<std::int32_t>(m + 2 * features + m + 2);
    p.b.assign(static_cast<std::size_t>(p.m), 0.0);
    p.c.assign(static_cast<std::size_t>(p.n), 0.0);
    Triplets a;
    for (std::int64_t i = 0; i < m; ++i) {  // z - A x = -y
        a.add(i, z + i, 1.0);
        p.b[i] = -y[i];
    }
    for (std::int64_t j = 0; j < features; ++j) {
        for (int e = 0; e < per_column; ++e) a.add(rows[j][e], x + j, -values[j][e]);
        a.add(m + 2 * j, t + j, -1.0);  // t - x >= 0
        a.add(m + 2 * j, x + j, 1.0);
        a.add(m + 2 * j + 1, t + j, -1.0);  // t + x >= 0
        a.add(m + 2 * j + 1, x + j, -1.0);
        p.c[t + j] = lambda;
    }
    const std::int64_t cone = m + 2 * features;  // ||(2 z, q - 1)|| <= q + 1, i.e. |z|^2 <= q
    a.add(cone, q, -1.0);
    p.b[cone] = 1.0;
    for (std::int64_t i = 0; i < m; ++i) a.add(cone + 1 + i, z + i, -2.0);
    a.add(cone + m + 1, q, -1.0);
    p.b[cone + m + 1] = -1.0;
    p.c[q] = 0.5;
    p.free_rows = static_cast<std::int32_t>(m);
    p.linear_rows = static_cast<std::int32_t>(2 * features);
    p.soc_sizes = {static_cast<std::int32_t>(m + 2)};
    compress(a, p);
    return p;
}

// Logistic regression on samples with ten N(0, 1) features of d each, labels from a
// dense N(0, 1) weight vector with N(0, 1) noise on the margin, lambda a tenth of
// |A'y|_inf / 2. Variables w, s (|w| <= s), t, z1, z2 (one of each per sample).
ConicProblem logisticRegression(std::int64_t samples, std::int64_t d) {
    const int per_sample = 10;
    Random random(3003);
    std::vector<double> truth(static_cast<std::size_t>(d));
    for (double& w : truth) w = random.normal();
    std::vector<std::vector<std::int64_t>> features(static_cast<std::size_t>(samples));
    std::vector<std::vector<double>> values(static_cast<std::size_t>(samples));
    std::vector<double> label(static_cast<std::size_t>(samples));
    std::vector<double> gradient(static_cast<std::size_t>(d), 0.0);
    for (std::int64_t i = 0; i < samples; ++i) {
        features[i] = distinct(random, d, per_sample);
        double margin = 0.0;
        for (int e = 0; e < per_sample; ++e) {
            values[i].push_back(random.normal());
            margin += values[i][e] * truth[features[i][e]];
        }
        label[i] = margin + random.normal() >= 0.0 ? 1.0 : -1.0;
        for (int e = 0; e < per_sample; ++e) gradient[features[i][e]] += label[i] * values[i][e];
    }
    double lambda_max = 0.0;
    for (double g : gradient) lambda_max = std::max(lambda_max, std::fabs(g) / 2.0);
    const double lambda = 0.1 * lambda_max;

    ConicProblem p;
    const std::int64_t w = 0, s = d, t = 2 * d, z1 = 2 * d + samples, z2 = 2 * d + 2 * samples;
    p.n = static_cast<std::int32_t>(2 * d + 3 * samples);
    p.m = static_cast<std::int32_t>(2 * d + samples + 6 * samples);
    p.b.assign(static_cast<std::size_t>(p.m), 0.0);
    p.c.assign(static_cast<std::size_t>(p.n), 0.0);
    Triplets a;
    for (std::int64_t j = 0; j < d; ++j) {
        a.add(2 * j, s + j, -1.0);  // s - w >= 0
        a.add(2 * j, w + j, 1.0);
        a.add(2 * j + 1, s + j, -1.0);  // s + w >= 0
        a.add(2 * j + 1, w + j, -1.0);
        p.c[s + j] = lambda;
    }
    const std::int64_t triples = 2 * d + samples;
    for (std::int64_t i = 0; i < samples; ++i) {
        a.add(2 * d + i, z1 + i, 1.0);  // 1 - z1 - z2 >= 0
        a.add(2 * d + i, z2 + i, 1.0);
        p.b[2 * d + i] = 1.0;
        // (r, s, t) = (-y a'w - t_i, 1, z1_i): z1_i >= exp(-y a'w - t_i)
        const std::int64_t first = triples + 6 * i;
        for (int e = 0; e < per_sample; ++e) a.add(first, w + features[i][e], label[i] * values[i][e]);
        a.add(first, t + i, 1.0);
        p.b[first + 1] = 1.0;
        a.add(first + 2, z1 + i, -1.0);
        // (r, s, t) = (-t_i, 1, z2_i): z2_i >= exp(-t_i)
        a.add(first + 3, t + i, 1.0);
        p.b[first + 4] = 1.0;
        a.add(first + 5, z2 + i, -1.0);
        p.c[t + i] = 1.0;
    }
    p.linear_rows = static_cast<std::int32_t>(2 * d + samples);
    p.exp_triples = static_cast<std::int32_t>(2 * samples);
    compress(a, p);
    return p;
}

// An SDPA sparse text: minimise c'y s.t. sum_k y_k F_k - F_0 psd, one block of the given
// side; entries (matrix, i, j, value) with i <= j, counted from 1, F_0 as matrix 0.
struct SdpaText {
    std::int64_t constraints = 0, side = 0;
    std::vector<double> costs;
    std::string entries;
    void add(std::int64_t matrix, std::int64_t i, std::int64_t j, double value) {
        char line[96];
        std::snprintf(line, sizeof line, "%lld 1 %lld %lld %.17g\n", static_cast<long long>(matrix),
                      static_cast<long long>(std::min(i, j) + 1), static_cast<long long>(std::max(i, j) + 1), value);
        entries += line;
    }
    std::string text(const std::string& title) const {
        std::string out = "\"" + title + "\"\n" + std::to_string(constraints) + " =mdim\n1 =nblocks\n" +
                          std::to_string(side) + "\n";
        char number[32];
        for (double cost : costs) {
            std::snprintf(number, sizeof number, "%.17g ", cost);
            out += number;
        }
        return out + "\n" + entries;
    }
};

// Matrix completion: M = U V' with U, V side x 3 of N(0, 1) entries, each entry seen with
// probability 0.2. Constraint k: F_k = (e_i e_{side+j}' + e_{side+j} e_i') / 2, cost M_ij;
// F_0 = -I / 2.
SdpaText matrixCompletion(std::int64_t side) {
    const int rank = 3;
    Random random(4004);
    std::vector<double> u(static_cast<std::size_t>(side * rank)), v(static_cast<std::size_t>(side * rank));
    for (double& e : u) e = random.normal();
    for (double& e : v) e = random.normal();
    SdpaText sdpa;
    sdpa.side = 2 * side;
    for (std::int64_t i = 0; i < 2 * side; ++i) sdpa.add(0, i, i, -0.5);
    for (std::int64_t i = 0; i < side; ++i) {
        for (std::int64_t j = 0; j < side; ++j) {
            if (random.uniform() >= 0.2) continue;
            double value = 0.0;
            for (int k = 0; k < rank; ++k) value += u[i * rank + k] * v[j * rank + k];
            ++sdpa.constraints;
            sdpa.costs.push_back(value);
            sdpa.add(sdpa.constraints, i, side + j, 0.5);
        }
    }
    return sdpa;
}

// Max-cut on a random graph (edges independent, mean degree 8): min sum y s.t.
// Diag(y) - L / 4 psd, whose value is max <L, X> / 4 over diag X = 1, X psd.
SdpaText maxCut(std::int64_t nodes) {
    Random random(5005);
    const double probability = 8.0 / static_cast<double>(nodes - 1);
    std::vector<double> degree(static_cast<std::size_t>(nodes), 0.0);
    SdpaText sdpa;
    sdpa.side = nodes;
    sdpa.constraints = nodes;
    sdpa.costs.assign(static_cast<std::size_t>(nodes), 1.0);
    for (std::int64_t i = 0; i < nodes; ++i) {
        for (std::int64_t j = i + 1; j < nodes; ++j) {
            if (random.uniform() >= probability) continue;
            sdpa.add(0, i, j, -0.25);
            degree[i] += 1.0;
            degree[j] += 1.0;
        }
    }
    for (std::int64_t i = 0; i < nodes; ++i) {
        if (degree[i] != 0.0) sdpa.add(0, i, i, degree[i] / 4.0);
        sdpa.add(i + 1, i, i, 1.0);
    }
    return sdpa;
}

// ---------------------------------------------------------------- the ladder

struct Instance {
    std::string family, name;
    std::int64_t size;  // the family's own measure: side, features, nodes or samples
    std::int64_t a, b;  // the generator's arguments
};

std::vector<Instance> ladder() {
    std::vector<Instance> all;
    for (std::int64_t side : {100, 200, 500, 1000, 2000}) all.push_back({"tv", "tv_" + std::to_string(side), side, side, 0});
    const std::int64_t lasso_sizes[][2] = {{500, 10000}, {1000, 40000}, {2000, 200000}, {3000, 500000}, {5000, 1000000}};
    for (auto [m, p] : lasso_sizes) all.push_back({"lasso", "lasso_" + std::to_string(10 * p), 10 * p, m, p});
    for (std::int64_t side : {50, 100, 200, 300, 400}) all.push_back({"mc", "mc_" + std::to_string(side), side, side, 0});
    for (std::int64_t nodes : {100, 200, 400, 600, 800}) all.push_back({"maxcut", "maxcut_" + std::to_string(nodes), nodes, nodes, 0});
    const std::int64_t logreg_sizes[][2] = {{1000, 50}, {3000, 100}, {10000, 200}, {20000, 300}, {50000, 500}};
    for (auto [samples, d] : logreg_sizes) all.push_back({"logreg", "logreg_" + std::to_string(2 * samples), 2 * samples, samples, d});
    return all;
}

bool semidefinite(const std::string& family) { return family == "mc" || family == "maxcut"; }

// Writes text to path through a temporary name, so that a file present is a whole file.
void writeWhole(const fs::path& path, const std::string& text) {
    const fs::path temporary = path.string() + ".part";
    {
        std::ofstream out(temporary, std::ios::binary);
        out.write(text.data(), static_cast<std::streamsize>(text.size()));
        if (!out) throw std::runtime_error("cannot write " + temporary.string());
    }
    fs::rename(temporary, path);
}

void writeCbfFile(const fs::path& path, const ConicProblem& p) {
    const fs::path temporary = path.string() + ".part";
    std::FILE* out = std::fopen(temporary.c_str(), "wb");
    if (out == nullptr) throw std::runtime_error("cannot open " + temporary.string());
    const bool written = writeCbf(p, out);
    if (std::fclose(out) != 0 || !written) throw std::runtime_error("cannot write " + temporary.string());
    fs::rename(temporary, path);
}

std::string coneSummary(const ConicProblem& p) {
    std::ostringstream out;
    if (p.free_rows > 0) out << "zero " << p.free_rows << ", ";
    if (p.linear_rows > 0) out << "linear " << p.linear_rows << ", ";
    if (!p.soc_sizes.empty()) {
        const auto [least, most] = std::minmax_element(p.soc_sizes.begin(), p.soc_sizes.end());
        out << "soc " << p.soc_sizes.size() << " (" << *least << (*least == *most ? "" : "-" + std::to_string(*most)) << "), ";
    }
    for (std::int32_t side : p.sd_sizes) out << "psd side " << side << ", ";
    if (p.exp_triples > 0) out << "exp " << p.exp_triples << ", ";
    std::string text = out.str();
    return text.empty() ? text : text.substr(0, text.size() - 2);
}

// Generates one instance into dir unless its files are there; returns its .info line.
std::string generate(const Instance& instance, const fs::path& dir, bool force) {
    const fs::path folder = dir / instance.family;
    fs::create_directories(folder);
    const fs::path cbf = folder / (instance.name + ".cbf");
    const fs::path sdpa = folder / (instance.name + ".dat-s");
    const fs::path info = folder / (instance.name + ".info");
    if (!force && fs::exists(info)) {
        std::ifstream in(info);
        std::string line;
        std::getline(in, line);
        return line;
    }
    std::fprintf(stderr, "ladder: writing %s\n", cbf.c_str());
    ConicProblem p;
    if (semidefinite(instance.family)) {
        const SdpaText text = instance.family == "mc" ? matrixCompletion(instance.a) : maxCut(instance.a);
        const std::string whole = text.text("korvex ladder " + instance.name);
        writeWhole(sdpa, whole);
        p = readSdpa(whole, instance.name + ".dat-s");  // the CBF file states the same problem
    } else if (instance.family == "tv") {
        p = totalVariation(instance.a);
    } else if (instance.family == "lasso") {
        p = lasso(instance.a, instance.b);
    } else {
        p = logisticRegression(instance.a, instance.b);
    }
    p.source = "korvex ladder " + instance.name;
    writeCbfFile(cbf, p);
    std::ostringstream line;
    line << instance.family << '\t' << instance.name << '\t' << instance.size << '\t' << p.n << '\t' << p.m << '\t'
         << p.values.size() << '\t' << coneSummary(p) << '\t' << cbf.string() << '\t'
         << (semidefinite(instance.family) ? sdpa.string() : "-");
    writeWhole(info, line.str() + "\n");
    return line.str();
}

int usage(const char* message) {
    std::fprintf(stderr,
                 "ladder_generate: %s\nusage: ladder_generate [--out DIR] [--max-size K] [--family NAME]... [--list] "
                 "[--force]\nfamilies: tv lasso mc maxcut logreg\n",
                 message);
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    const char* env = std::getenv("KORVEX_LADDER_DIR");
    fs::path dir = env != nullptr && *env != '\0' ? env : "/work/ladder-data";
    int max_size = 5;
    bool list = false, force = false;
    std::vector<std::string> families;
    for (int k = 1; k < argc; ++k) {
        const std::string arg = argv[k];
        const bool has_value = k + 1 < argc;
        if (arg == "--out" && has_value) {
            dir = argv[++k];
        } else if (arg == "--max-size" && has_value) {
            max_size = std::atoi(argv[++k]);
            if (max_size < 1 || max_size > 5) return usage("--max-size takes 1 to 5");
        } else if (arg == "--family" && has_value) {
            families.push_back(argv[++k]);
        } else if (arg == "--list") {
            list = true;
        } else if (arg == "--force") {
            force = true;
        } else {
            return usage(("unknown or incomplete option " + arg).c_str());
        }
    }
    const std::vector<Instance> all = ladder();
    for (const std::string& family : families) {
        if (std::none_of(all.begin(), all.end(), [&](const Instance& i) { return i.family == family; })) {
            return usage(("no family " + family).c_str());
        }
    }
    try {
        std::string previous;
        int rank = 0;
        for (const Instance& instance : all) {
            rank = instance.family == previous ? rank + 1 : 1;
            previous = instance.family;
            if (rank > max_size) continue;
            if (!families.empty() && std::find(families.begin(), families.end(), instance.family) == families.end()) continue;
            if (list) {
                std::printf("%s\t%s\t%lld\n", instance.family.c_str(), instance.name.c_str(),
                            static_cast<long long>(instance.size));
            } else {
                std::printf("%s\n", generate(instance, dir, force).c_str());
                std::fflush(stdout);
            }
        }
    } catch (const std::exception& error) {
        std::fprintf(stderr, "ladder_generate: %s\n", error.what());
        return 1;
    }
    return 0;
}
