/* The exports of KorvexLink, the shared library a host application loads at run time.
 *
 * Load-time contract: the host asks TolvaneLibrary_getVersion, then calls
 * TolvaneLibrary_initialize with its callback table, which registers
 * KorvexSolutionMap_manage as the manager of the host's "korvex_solution_instance_manager"
 * instances; TolvaneLibrary_uninitialize comes last. In between, the host creates an
 * instance (the manager call with mode 0), solves into it with KorvexLinkSolve, reads it
 * with the accessors and destroys it (the manager call with a non-zero mode, on its own or
 * after KorvexSolutionMap_delete).
 *
 * All but the first four share one signature: (host, argumentCount, arguments, result).
 * arguments[k] points at the k-th value (an int32_t, a double, a HostTensor, a HostSparse
 * or a char*); result points at where the answer goes. They return 0 on success and 6 for
 * a wrong argument count or an id without instance. Nothing throws across these
 * functions, and only they are visible in the library's dynamic symbol table.
 */
#ifndef KORVEX_LINK_KORVEX_LINK_H
#define KORVEX_LINK_KORVEX_LINK_H

#include <stdint.h>

#include "link/host_interface.h"

#if defined(__GNUC__)
#define KORVEX_LINK_EXPORT __attribute__((visibility("default")))
#else
#define KORVEX_LINK_EXPORT
#endif

#ifdef __cplusplus
#define KORVEX_LINK_NOEXCEPT noexcept
extern "C" {
#else
#define KORVEX_LINK_NOEXCEPT
#endif

/* The signature of every export that takes positional arguments. */
typedef int (*KorvexLinkFunction)(HostData host, int32_t argumentCount, HostArgument *arguments, HostArgument result);

/* ---- Load time -------------------------------------------------------------------- */

/* 5, the version of this interface. */
KORVEX_LINK_EXPORT int32_t TolvaneLibrary_getVersion(void) KORVEX_LINK_NOEXCEPT;

/* Keeps host as the process-wide callback table and registers KorvexSolutionMap_manage
 * under "korvex_solution_instance_manager"; returns what the host's registration returns
 * (non-zero also for a null table). */
KORVEX_LINK_EXPORT int TolvaneLibrary_initialize(HostData host) KORVEX_LINK_NOEXCEPT;

/* Unregisters the manager and forgets the table; stored instances stay. */
KORVEX_LINK_EXPORT void TolvaneLibrary_uninitialize(HostData host) KORVEX_LINK_NOEXCEPT;

/* ---- Solve ------------------------------------------------------------------------ */

/* Solves the cone program of the 37 positional arguments and stores the result under the
 * id at position 0. Always returns 0; the int32_t at result gets the statusVal of the
 * solve, or -4 when the arguments were refused (nothing is then stored). argumentCount
 * is not read. */
KORVEX_LINK_EXPORT int KorvexLinkSolve(HostData host, int32_t argumentCount, HostArgument *arguments,
                                       HostArgument result) KORVEX_LINK_NOEXCEPT;

/* ---- Solution store --------------------------------------------------------------- */

/* The instance manager: mode 0 creates an empty instance for id, any other mode
 * destroys the instance of id with its vectors. */
KORVEX_LINK_EXPORT void KorvexSolutionMap_manage(HostData host, int32_t mode, int32_t id) KORVEX_LINK_NOEXCEPT;

/* Asks the host to destroy the instance of the one argument; returns the host's answer,
 * or 6 for a count other than 1 or an id without instance. result is not written. */
KORVEX_LINK_EXPORT int KorvexSolutionMap_delete(HostData host, int32_t argumentCount, HostArgument *arguments,
                                                HostArgument result) KORVEX_LINK_NOEXCEPT;

/* Writes a new integer tensor of the live ids through result; returns 0 or the host's
 * error code from tensorNew. Arguments are not read. */
KORVEX_LINK_EXPORT int KorvexSolutionMap_retIDList(HostData host, int32_t argumentCount, HostArgument *arguments,
                                                   HostArgument result) KORVEX_LINK_NOEXCEPT;

/* Field accessors: the one argument is the id. x, y and s are written as new tensors
 * that the host owns (a null tensor before the first solve); status as a pointer to the
 * instance's own text, valid while the instance lives; the rest as int32_t or double.
 * 6 for a count other than 1 or an id without instance. */
KORVEX_LINK_EXPORT int KorvexSolutionMap_ret_x(HostData host, int32_t argumentCount, HostArgument *arguments,
                                               HostArgument result) KORVEX_LINK_NOEXCEPT;
KORVEX_LINK_EXPORT int KorvexSolutionMap_ret_y(HostData host, int32_t argumentCount, HostArgument *arguments,
                                               HostArgument result) KORVEX_LINK_NOEXCEPT;
KORVEX_LINK_EXPORT int KorvexSolutionMap_ret_s(HostData host, int32_t argumentCount, HostArgument *arguments,
                                               HostArgument result) KORVEX_LINK_NOEXCEPT;
KORVEX_LINK_EXPORT int KorvexSolutionMap_ret_iter(HostData host, int32_t argumentCount, HostArgument *arguments,
                                                  HostArgument result) KORVEX_LINK_NOEXCEPT;
KORVEX_LINK_EXPORT int KorvexSolutionMap_ret_status(HostData host, int32_t argumentCount, HostArgument *arguments,
                                                    HostArgument result) KORVEX_LINK_NOEXCEPT;
KORVEX_LINK_EXPORT int KorvexSolutionMap_ret_statusVal(HostData host, int32_t argumentCount, HostArgument *arguments,
                                                       HostArgument result) KORVEX_LINK_NOEXCEPT;
KORVEX_LINK_EXPORT int KorvexSolutionMap_ret_pobj(HostData host, int32_t argumentCount, HostArgument *arguments,
                                                  HostArgument result) KORVEX_LINK_NOEXCEPT;
KORVEX_LINK_EXPORT int KorvexSolutionMap_ret_dobj(HostData host, int32_t argumentCount, HostArgument *arguments,
                                                  HostArgument result) KORVEX_LINK_NOEXCEPT;
KORVEX_LINK_EXPORT int KorvexSolutionMap_ret_resPri(HostData host, int32_t argumentCount, HostArgument *arguments,
                                                    HostArgument result) KORVEX_LINK_NOEXCEPT;
KORVEX_LINK_EXPORT int KorvexSolutionMap_ret_resDual(HostData host, int32_t argumentCount, HostArgument *arguments,
                                                     HostArgument result) KORVEX_LINK_NOEXCEPT;
KORVEX_LINK_EXPORT int KorvexSolutionMap_ret_resInfeas(HostData host, int32_t argumentCount, HostArgument *arguments,
                                                       HostArgument result) KORVEX_LINK_NOEXCEPT;
KORVEX_LINK_EXPORT int KorvexSolutionMap_ret_resUnbdd(HostData host, int32_t argumentCount, HostArgument *arguments,
                                                      HostArgument result) KORVEX_LINK_NOEXCEPT;
KORVEX_LINK_EXPORT int KorvexSolutionMap_ret_relGap(HostData host, int32_t argumentCount, HostArgument *arguments,
                                                    HostArgument result) KORVEX_LINK_NOEXCEPT;
KORVEX_LINK_EXPORT int KorvexSolutionMap_ret_setupTime(HostData host, int32_t argumentCount, HostArgument *arguments,
                                                       HostArgument result) KORVEX_LINK_NOEXCEPT;
KORVEX_LINK_EXPORT int KorvexSolutionMap_ret_solveTime(HostData host, int32_t argumentCount, HostArgument *arguments,
                                                       HostArgument result) KORVEX_LINK_NOEXCEPT;

#ifdef __cplusplus
}
#endif

#endif
