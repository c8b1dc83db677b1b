// A stand-in for the closed host application, for tests and tools: it implements the
// callback table of link/host_interface.h with tensors of integers and reals, sparse
// arrays with one-based indices and a registry of instance managers, and it counts its
// live objects so that a test can tell whether the library leaks host objects.
//
// The callbacks carry no context of their own, so the state is process-wide, as in the
// real host. Everything runs on the calling thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "link/host_interface.h"

namespace standin {

// The callback table to hand to the library.
HostData callbackTable();

// ---- Tensors (rank 1) -------------------------------------------------------------------

HostTensor newRealTensor(const std::vector<double>& values);
HostTensor newIntegerTensor(const std::vector<std::int32_t>& values);

// The type of a tensor: KORVEX_HOST_INTEGER or KORVEX_HOST_REAL.
std::int32_t tensorType(HostTensor tensor);

// The entries of a tensor of that type; empty for a tensor of the other type.
std::vector<double> realValues(HostTensor tensor);
std::vector<std::int32_t> integerValues(HostTensor tensor);

void freeTensor(HostTensor tensor);

// Tensors made and not yet freed, those inside sparse arrays included.
long liveTensorCount();

// ---- Sparse arrays ----------------------------------------------------------------------

// A sparse array of rows rows from its three parts, taken as they are: no check, so that
// a test can hand the library malformed arrays too.
HostSparse newSparse(std::int32_t rows, const std::vector<std::int32_t>& starts,
                     const std::vector<std::int32_t>& oneBasedRows, const std::vector<double>& values);

// The sparse array of a dense matrix given by rows (every row as long as the first): the
// non-zero entries, column by column.
HostSparse sparseFromDense(const std::vector<std::vector<double>>& rows);

void freeSparse(HostSparse sparse);

// Sparse arrays made and not yet freed.
long liveSparseCount();

// ---- Instances --------------------------------------------------------------------------

// Creates an instance of the manager registered under name, with the next id of the
// host's own counter, and tells the manager (mode 0). Nothing without such a manager.
std::optional<std::int32_t> createInstance(const char* name);

// The same with an id of the caller's choosing, whether or not it is live already.
bool createInstanceWithId(const char* name, std::int32_t id);

// Destroys a live instance as the host does on its own: forgets it, then tells the
// manager (mode 1). 0, or 1 when there is no such manager or instance.
int destroyInstance(const char* name, std::int32_t id);

// The live ids of the manager's instances, in increasing order.
std::vector<std::int32_t> liveInstances(const char* name);

bool managerRegistered(const char* name);

// ---- Failures on demand -----------------------------------------------------------------

enum class HostCall { TensorNew, TensorClone, SparseClone };

// The code with which an injected failure answers.
inline constexpr int kInjectedFailure = 17;

// The k-th call of that kind from now (k from 1) fails with kInjectedFailure, once; 0
// disarms it.
void failCallAt(HostCall call, long k);

// Clears every armed failure.
void clearFailures();

// ---- Recording --------------------------------------------------------------------------

// While a recording runs, every callback the library makes and every call of a manager by
// the host adds one line, in the order of the calls: "tensorClone(b) -> t1",
// "tensorFlattenedLength(c) = 2", "tensorNew(real, 1, [4]) = 17", "manager(1, 7)".
// Handles appear by the names given with nameHandle; the others are named as they first
// appear, t1, t2, ... for tensors and a1, a2, ... for sparse arrays, and the tensors of a
// sparse array NAME as NAME.values, NAME.pointers and NAME.indices. A freed handle loses
// its name. Starting clears the lines and the names.
void startRecording();
void stopRecording();
void nameHandle(const void* handle, const std::string& name);

// The lines recorded since the start or the last call; the recording goes on.
std::vector<std::string> takeRecordedCalls();

}  // namespace standin
