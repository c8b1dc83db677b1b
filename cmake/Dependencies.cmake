# Locates the Debian packages the solver calls: AMD and CXSparse from SuiteSparse,
# BLAS and LAPACK from OpenBLAS. Each becomes an imported target.

find_path(KORVEX_SUITESPARSE_INCLUDE_DIR NAMES amd.h cs.h PATH_SUFFIXES suitesparse REQUIRED)
find_library(KORVEX_AMD_LIBRARY NAMES amd REQUIRED)
find_library(KORVEX_CXSPARSE_LIBRARY NAMES cxsparse REQUIRED)
find_library(KORVEX_LDL_LIBRARY NAMES ldl)
find_library(KORVEX_OPENBLAS_LIBRARY NAMES openblas REQUIRED)

add_library(korvex::amd UNKNOWN IMPORTED)
set_target_properties(korvex::amd PROPERTIES
  IMPORTED_LOCATION "${KORVEX_AMD_LIBRARY}"
  INTERFACE_INCLUDE_DIRECTORIES "${KORVEX_SUITESPARSE_INCLUDE_DIR}")

add_library(korvex::cxsparse UNKNOWN IMPORTED)
set_target_properties(korvex::cxsparse PROPERTIES
  IMPORTED_LOCATION "${KORVEX_CXSPARSE_LIBRARY}"
  INTERFACE_INCLUDE_DIRECTORIES "${KORVEX_SUITESPARSE_INCLUDE_DIR}")

# SuiteSparse's own LDL' package: only the benchmarks and tests compare against it.
if(KORVEX_LDL_LIBRARY)
  add_library(korvex::ldl UNKNOWN IMPORTED)
  set_target_properties(korvex::ldl PROPERTIES
    IMPORTED_LOCATION "${KORVEX_LDL_LIBRARY}"
    INTERFACE_INCLUDE_DIRECTORIES "${KORVEX_SUITESPARSE_INCLUDE_DIR}")
endif()

# OpenBLAS carries LAPACK as well; the solver calls the Fortran symbols directly.
add_library(korvex::openblas UNKNOWN IMPORTED)
set_target_properties(korvex::openblas PROPERTIES IMPORTED_LOCATION "${KORVEX_OPENBLAS_LIBRARY}")

find_package(Threads REQUIRED)

if(KORVEX_BUILD_TESTS)
  find_package(GTest REQUIRED)
endif()
if(KORVEX_BUILD_BENCHMARKS)
  find_package(benchmark REQUIRED)
endif()
