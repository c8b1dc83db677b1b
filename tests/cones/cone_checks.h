// What the cone tests share: a Cone record over vectors the test owns, seeded random
// numbers, bounds on the distance from a point to each cone, and the dense reference of
// the semidefinite projection.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>
#include <random>
#include <utility>
#include <vector>

#include "cones/cones.h"

// The suites reach the library's internals by their plain names.
using namespace korvex;

// A Cone record over vectors that the test owns.
struct ConeFixture {
    std::vector<int> soc, sd;
    std::vector<double> power;
    Cone cone{};

    ConeFixture(int free_vars, int linear_vars, std::vector<int> soc_sizes, std::vector<int> sd_sizes,
                int exp_triples, int dual_exp_triples, std::vector<double> exponents)
        : soc(std::move(soc_sizes)), sd(std::move(sd_sizes)), power(std::move(exponents)) {
        auto list = [](auto& v) { return v.empty() ? nullptr : v.data(); };
        cone = Cone{free_vars,   linear_vars,      list(soc),   static_cast<int>(soc.size()),  list(sd),
                    static_cast<int>(sd.size()), exp_triples, dual_exp_triples, list(power),
                    static_cast<int>(power.size())};
    }
    ConeFixture(const ConeFixture&) = delete;
    ConeFixture& operator=(const ConeFixture&) = delete;
};

struct ConeWorkRelease {
    void operator()(ConeWork* work) const { freeConeWork(work); }
};
using ConeWorkOwner = std::unique_ptr<ConeWork, ConeWorkRelease>;

// Normal and uniform draws from one fixed-seed generator.
struct Sampler {
    std::mt19937_64 engine;
    explicit Sampler(std::uint64_t seed) : engine(seed) {}
    double uniform(double lo, double hi) { return std::uniform_real_distribution<double>(lo, hi)(engine); }
    std::vector<double> normals(int count, double sigma = 1.0) {
        std::vector<double> v(count);
        for (double& x : v) x = std::normal_distribution<double>(0.0, sigma)(engine);
        return v;
    }
};

inline double dot(const std::vector<double>& a, const std::vector<double>& b) {
    double sum = 0.0;
    for (std::size_t k = 0; k < a.size(); ++k) sum += a[k] * b[k];
    return sum;
}
inline double norm(const std::vector<double>& a) { return std::sqrt(dot(a, a)); }
inline double distance(std::vector<double> a, const std::vector<double>& b) {
    for (std::size_t k = 0; k < a.size(); ++k) a[k] -= b[k];
    return norm(a);
}
inline double negativePart(double x) { return x < 0.0 ? -x : 0.0; }

// Upper bounds on the distance from a point to a cone: each is the length of a move
// that provably lands in the cone (the least of a few such moves), so that a small
// bound proves membership within that tolerance, whatever the curvature of the cone.

// (t, z): |z| <= t, k entries. Raising t suffices.
inline double secondOrderGap(const double* x, int k) {
    if (k == 0) return 0.0;
    double nz = 0.0;
    for (int j = 1; j < k; ++j) nz += x[j] * x[j];
    return std::max(0.0, std::sqrt(nz) - x[0]);
}

// cl{(r, s, t): s > 0, s exp(r/s) <= t}: the edge (r <= 0, 0, t >= 0), raising t, or
// lowering r to s log(t/s).
inline double expConeGap(const double* p) {
    const double r = p[0], s = p[1], t = p[2];
    double gap = std::hypot(std::hypot(std::max(r, 0.0), s), negativePart(t));
    if (s > 0.0) gap = std::min(gap, std::max(0.0, s * std::exp(r / s) - t));
    if (s > 0.0 && t > 0.0) gap = std::min(gap, std::max(0.0, r - s * std::log(t / s)));
    return gap;
}

// The dual {(u, v, w): u < 0, -u exp(v/u - 1) <= w} with its edge (0, v >= 0, w >= 0):
// the edge, raising w, or raising v to u + u log(w / -u).
inline double dualExpConeGap(const double* p) {
    const double u = p[0], v = p[1], w = p[2];
    double gap = std::hypot(std::hypot(u, negativePart(v)), negativePart(w));
    if (u < 0.0) gap = std::min(gap, std::max(0.0, -u * std::exp(v / u - 1) - w));
    if (u < 0.0 && w > 0.0) gap = std::min(gap, std::max(0.0, u + u * std::log(w / -u) - v));
    return gap;
}

// {(x, y, z): x, y >= 0, (x/al)^a (y/be)^(1-a) >= |z|}: al = be = 1 is the power cone of
// exponent a, al = a and be = 1 - a its dual. Clip x and y at 0, then raise one of the
// three.
inline double scaledPowerGap(const double* p, double a, double al, double be) {
    const double b = 1 - a;
    const double x = std::max(p[0], 0.0), y = std::max(p[1], 0.0), r = std::fabs(p[2]);
    const double fx = std::pow(x / al, a), fy = std::pow(y / be, b);
    double gap = std::max(0.0, r - fx * fy);
    if (a > 0.0 && fy > 0.0) gap = std::min(gap, std::max(0.0, al * std::pow(r / fy, 1 / a) - x));
    if (b > 0.0 && fx > 0.0) gap = std::min(gap, std::max(0.0, be * std::pow(r / fx, 1 / b) - y));
    return std::hypot(negativePart(p[0]), negativePart(p[1])) + gap;
}
inline double powerConeGap(const double* p, double a) { return scaledPowerGap(p, a, 1.0, 1.0); }
inline double dualPowerConeGap(const double* p, double a) { return scaledPowerGap(p, a, a, 1 - a); }

// Eigenvalues of the packed matrix x of side n, ascending, from LAPACK's dsyev on the
// unpacked matrix; with vectors non-null, the eigenvectors too (column-major).
std::vector<double> symmetricEigen(const double* x, int n, std::vector<double>* vectors = nullptr);

// The packed projection sum over e > 0 of e z z', from that full decomposition.
std::vector<double> semidefiniteReference(const double* x, int n);
