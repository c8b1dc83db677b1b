// What a host passes to KorvexLinkSolve: a cone program held in host objects, and the
// 37 positional arguments that point at it and at the options.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "records/records.h"
#include "link/host_interface.h"

namespace standin {

// minimise c'x subject to Ax + s = b, s in K; A given densely by rows, K by the counts
// and sizes of its blocks in the library's row order.
struct ConeProgram {
    std::vector<std::vector<double>> rows;
    std::vector<double> b;
    std::vector<double> c;
    std::int32_t free_vars = 0;
    std::int32_t linear_vars = 0;
    std::vector<std::int32_t> soc_sizes;
    std::vector<std::int32_t> sd_sizes;
    std::int32_t exp_triples = 0;
    std::int32_t dual_exp_triples = 0;
    std::vector<double> power_exponents;
};

// A cone program as host objects: tensors for b, c and the three size lists (empty ones
// too), a sparse array for A. The host owns them, and so this record frees them.
class HostProblem {
public:
    explicit HostProblem(const ConeProgram& program);
    ~HostProblem();
    HostProblem(const HostProblem&) = delete;
    HostProblem& operator=(const HostProblem&) = delete;

    HostTensor b;
    HostTensor c;
    HostSparse A;
    std::int32_t free_vars;
    std::int32_t linear_vars;
    HostTensor soc_sizes;
    HostTensor sd_sizes;
    std::int32_t exp_triples;
    std::int32_t dual_exp_triples;
    HostTensor power_exponents;
};

// The 37 arguments of KorvexLinkSolve, with storage for the values their slots point at.
// Built from an instance id, a problem, every option of a Settings record and the name
// of the direction; any position can be changed afterwards.
class SolveArguments {
public:
    static constexpr int kCount = 37;

    SolveArguments(std::int32_t id, const HostProblem& problem, const Settings& settings, const std::string& direction);
    SolveArguments(const SolveArguments&) = delete;
    SolveArguments& operator=(const SolveArguments&) = delete;

    void setInteger(int position, std::int32_t value);
    void setReal(int position, double value);
    void setTensor(int position, HostTensor value);
    void setSparse(int position, HostSparse value);
    void setText(int position, const std::string& value);

    HostArgument* slots() { return slots_.data(); }

private:
    struct Value {
        std::int32_t integer = 0;
        double real = 0.0;
        HostTensor tensor = nullptr;
        HostSparse sparse = nullptr;
        char* text = nullptr;
    };
    // The value at position, and its slot pointing at it.
    template <class T>
    void set(int position, T Value::*member, T value) {
        values_[position].*member = value;
        slots_[position] = &(values_[position].*member);
    }

    std::array<Value, kCount> values_;
    std::array<HostArgument, kCount> slots_{};
    std::array<std::string, kCount> texts_;
};

}  // namespace standin
