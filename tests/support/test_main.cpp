// The main of every test executable: the same conditions however a suite is started
// (through CTest, by hand, or under a debugger).
#include <gtest/gtest.h>

extern "C" {

// OpenBLAS's own call: one BLAS thread, so that results are reproducible and the suites
// do not fight over the cores of a CI machine.
void openblas_set_num_threads(int num_threads);

// The sanitizer build lets an impossible allocation fail with null, as the library
// expects of its heap, and stops at the first undefined behaviour.
const char* __asan_default_options() { return "allocator_may_return_null=1"; }
const char* __ubsan_default_options() { return "print_stacktrace=1:halt_on_error=1"; }
}

int main(int argc, char** argv) {
    openblas_set_num_threads(1);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
