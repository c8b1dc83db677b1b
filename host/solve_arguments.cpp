#include "host/solve_arguments.h"

#include "host/stand_in_host.h"

namespace standin {

HostProblem::HostProblem(const ConeProgram& program)
    : b(newRealTensor(program.b)),
      c(newRealTensor(program.c)),
      A(sparseFromDense(program.rows)),
      free_vars(program.free_vars),
      linear_vars(program.linear_vars),
      soc_sizes(newIntegerTensor(program.soc_sizes)),
      sd_sizes(newIntegerTensor(program.sd_sizes)),
      exp_triples(program.exp_triples),
      dual_exp_triples(program.dual_exp_triples),
      power_exponents(newRealTensor(program.power_exponents)) {}

HostProblem::~HostProblem() {
    for (HostTensor tensor : {b, c, soc_sizes, sd_sizes, power_exponents}) freeTensor(tensor);
    freeSparse(A);
}

SolveArguments::SolveArguments(std::int32_t id, const HostProblem& problem, const Settings& settings,
                               const std::string& direction) {
    // The problem, positions 0 to 10.
    setInteger(0, id);
    setTensor(1, problem.b);
    setTensor(2, problem.c);
    setSparse(3, problem.A);
    setInteger(4, problem.free_vars);
    setInteger(5, problem.linear_vars);
    setTensor(6, problem.soc_sizes);
    setTensor(7, problem.sd_sizes);
    setInteger(8, problem.exp_triples);
    setInteger(9, problem.dual_exp_triples);
    setTensor(10, problem.power_exponents);
    // The options, 11 to 36, in the order in which the library reads them.
    setInteger(11, settings.normalize);
    setReal(12, settings.scale);
    setReal(13, settings.rho_x);
    setInteger(14, settings.max_iters);
    setInteger(15, settings.progress_capacity);
    setReal(16, settings.eps);
    setReal(17, settings.alpha);
    setReal(18, settings.cg_rate);
    setInteger(19, settings.verbose);
    setInteger(20, settings.warm_start);
    setInteger(21, settings.do_super_korvex);
    setInteger(22, settings.k0);
    setInteger(23, settings.k1);
    setInteger(24, settings.k2);
    setReal(25, settings.c_bl);
    setReal(26, settings.c1);
    setReal(27, settings.sse);
    setInteger(28, settings.ls);
    setReal(29, settings.beta);
    setReal(30, settings.sigma);
    setText(31, direction);
    setReal(32, settings.thetabar);
    setInteger(33, settings.memory);
    setInteger(34, settings.broyden_rule);
    setInteger(35, settings.broyden_init_scale);
    setInteger(36, settings.record_progress);
}

void SolveArguments::setInteger(int position, std::int32_t value) { set(position, &Value::integer, value); }

void SolveArguments::setReal(int position, double value) { set(position, &Value::real, value); }

void SolveArguments::setTensor(int position, HostTensor value) { set(position, &Value::tensor, value); }

void SolveArguments::setSparse(int position, HostSparse value) { set(position, &Value::sparse, value); }

void SolveArguments::setText(int position, const std::string& value) {
    texts_[position] = value;
    set(position, &Value::text, texts_[position].data());
}

}  // namespace standin
