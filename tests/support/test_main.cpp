// The main of every test executable: the same conditions however a suite is started.
#include <gtest/gtest.h>

extern "C" {

// One BLAS thread: reproducible results, and suites that do not fight over the cores.
void openblas_set_num_threads(int num_threads);

// Under the sanitizers an impossible allocation gives null, as the library expects, and
// the first undefined behaviour stops the run.
const char* __asan_default_options() { return "allocator_may_return_null=1"; }
const char* __ubsan_default_options() { return "print_stacktrace=1:halt_on_error=1"; }
}

int main(int argc, char** argv) {
    openblas_set_num_threads(1);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
