#include "host/stand_in_host.h"

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <type_traits>
#include <utility>

// The host's objects. A tensor keeps the entries of its own type only.
struct HostTensorRecord {
    std::int32_t type;
    std::vector<std::int32_t> integers;
    std::vector<double> reals;
};

struct HostSparseRecord {
    std::int32_t rows;
    HostTensor values;
    HostTensor pointers;
    HostTensor indices;
};

namespace standin {
namespace {

// Error codes of the host's own refusals.
constexpr int kBadRequest = 1;

long live_tensors = 0;
long live_sparse = 0;

std::map<std::string, InstanceManager> managers;
std::map<std::string, std::set<std::int32_t>> instances;
std::int32_t next_id = 1;

// Countdown to an injected failure per kind of call; 0 when disarmed.
long countdown[3] = {0, 0, 0};

// The recording: its lines, and the names of the handles it has seen.
bool recording = false;
std::vector<std::string> recorded;
std::map<const void*, std::string> names;
int named_tensors = 0;
int named_sparse = 0;

// Adds the line that line() makes, when a recording runs.
template <class Line>
void record(Line line) {
    if (recording) recorded.push_back(line());
}

// The name of a handle in the recording; one it has not seen gets the next number.
std::string nameOf(const void* handle, bool sparse = false) {
    if (handle == nullptr) return "null";
    auto [entry, fresh] = names.try_emplace(handle);
    if (fresh) entry->second = sparse ? "a" + std::to_string(++named_sparse) : "t" + std::to_string(++named_tensors);
    return entry->second;
}

std::string sparseName(HostSparse sparse) { return nameOf(sparse, true); }

// A call that answers with a code and, on success, a new handle: the handle, or the code.
template <class Handle>
std::string answer(int code, const Handle* made) {
    return code == 0 ? " -> " + nameOf(*made, std::is_same_v<Handle, HostSparse>) : " = " + std::to_string(code);
}

// Whether this call of the kind is the one armed to fail.
bool injectFailure(HostCall call) {
    long& left = countdown[static_cast<int>(call)];
    if (left == 0) return false;
    return --left == 0;
}

std::size_t lengthOf(const HostTensorRecord* tensor) {
    return tensor->type == KORVEX_HOST_REAL ? tensor->reals.size() : tensor->integers.size();
}

HostTensor makeTensor(std::int32_t type) {
    ++live_tensors;
    return new HostTensorRecord{type, {}, {}};
}

// ---- The callbacks ----------------------------------------------------------------------

void dropTensor(HostTensor tensor) {
    if (tensor == nullptr) return;
    names.erase(tensor);
    --live_tensors;
    delete tensor;
}

int newTensor(std::int32_t type, std::int32_t rank, const std::int32_t* dims, HostTensor* tensor) {
    if (injectFailure(HostCall::TensorNew)) return kInjectedFailure;
    if ((type != KORVEX_HOST_INTEGER && type != KORVEX_HOST_REAL) || rank != 1 || dims == nullptr || dims[0] < 0) {
        return kBadRequest;
    }
    HostTensor made = makeTensor(type);
    if (type == KORVEX_HOST_REAL) {
        made->reals.assign(static_cast<std::size_t>(dims[0]), 0.0);
    } else {
        made->integers.assign(static_cast<std::size_t>(dims[0]), 0);
    }
    *tensor = made;
    return 0;
}

int tensorNew(std::int32_t type, std::int32_t rank, const std::int32_t* dims, HostTensor* tensor) {
    const int code = newTensor(type, rank, dims, tensor);
    record([&] {
        const std::string kind = type == KORVEX_HOST_REAL ? "real" : type == KORVEX_HOST_INTEGER ? "integer" : std::to_string(type);
        const std::string size = dims == nullptr ? "null" : "[" + std::to_string(dims[0]) + "]";
        return "tensorNew(" + kind + ", " + std::to_string(rank) + ", " + size + ")" + answer(code, tensor);
    });
    return code;
}

void tensorFree(HostTensor tensor) {
    record([&] { return "tensorFree(" + nameOf(tensor) + ")"; });
    dropTensor(tensor);
}

int cloneTensor(HostTensor source, HostTensor* copy) {
    if (injectFailure(HostCall::TensorClone)) return kInjectedFailure;
    if (source == nullptr) return kBadRequest;
    HostTensor made = makeTensor(source->type);
    *made = *source;
    *copy = made;
    return 0;
}

int tensorClone(HostTensor source, HostTensor* copy) {
    const int code = cloneTensor(source, copy);
    record([&] { return "tensorClone(" + nameOf(source) + ")" + answer(code, copy); });
    return code;
}

std::int32_t tensorFlattenedLength(HostTensor tensor) {
    const std::int32_t length = tensor == nullptr ? -1 : static_cast<std::int32_t>(lengthOf(tensor));
    record([&] { return "tensorFlattenedLength(" + nameOf(tensor) + ") = " + std::to_string(length); });
    return length;
}

// An empty tensor has no data (null), so that a reader who ignores the length shows.
std::int32_t* tensorIntegerData(HostTensor tensor) {
    record([&] { return "tensorIntegerData(" + nameOf(tensor) + ")"; });
    if (tensor == nullptr || tensor->type != KORVEX_HOST_INTEGER || tensor->integers.empty()) return nullptr;
    return tensor->integers.data();
}

double* tensorRealData(HostTensor tensor) {
    record([&] { return "tensorRealData(" + nameOf(tensor) + ")"; });
    if (tensor == nullptr || tensor->type != KORVEX_HOST_REAL || tensor->reals.empty()) return nullptr;
    return tensor->reals.data();
}

HostSparse makeSparse(std::int32_t rows, HostTensor values, HostTensor pointers, HostTensor indices) {
    ++live_sparse;
    return new HostSparseRecord{rows, values, pointers, indices};
}

int cloneSparse(HostSparse source, HostSparse* copy) {
    if (injectFailure(HostCall::SparseClone)) return kInjectedFailure;
    if (source == nullptr) return kBadRequest;
    HostTensor parts[3] = {};
    const HostTensor originals[3] = {source->values, source->pointers, source->indices};
    for (int k = 0; k < 3; ++k) {
        parts[k] = makeTensor(originals[k]->type);
        *parts[k] = *originals[k];
    }
    *copy = makeSparse(source->rows, parts[0], parts[1], parts[2]);
    return 0;
}

int sparseClone(HostSparse source, HostSparse* copy) {
    const int code = cloneSparse(source, copy);
    record([&] { return "sparseClone(" + sparseName(source) + ")" + answer(code, copy); });
    return code;
}

void dropSparse(HostSparse sparse) {
    if (sparse == nullptr) return;
    dropTensor(sparse->values);
    dropTensor(sparse->pointers);
    dropTensor(sparse->indices);
    names.erase(sparse);
    --live_sparse;
    delete sparse;
}

void sparseFree(HostSparse sparse) {
    record([&] { return "sparseFree(" + sparseName(sparse) + ")"; });
    dropSparse(sparse);
}

// One of the three tensors of a sparse array, named after the array in a recording.
HostTensor* sparsePart(const char* call, HostSparse sparse, HostTensor* part, const char* suffix) {
    record([&] {
        const std::string array = sparseName(sparse);
        names.try_emplace(*part, array + suffix);
        return std::string(call) + "(" + array + ") -> " + nameOf(*part);
    });
    return part;
}

HostTensor* sparseValues(HostSparse sparse) { return sparsePart("sparseValues", sparse, &sparse->values, ".values"); }
HostTensor* sparsePointers(HostSparse sparse) {
    return sparsePart("sparsePointers", sparse, &sparse->pointers, ".pointers");
}
HostTensor* sparseIndices(HostSparse sparse) { return sparsePart("sparseIndices", sparse, &sparse->indices, ".indices"); }

int registerInstanceManager(const char* name, InstanceManager manager) {
    const int code = name == nullptr || manager == nullptr || managers.count(name) != 0 ? kBadRequest : 0;
    if (code == 0) managers[name] = manager;
    record([&] { return "registerInstanceManager(" + std::string(name ? name : "null") + ") = " + std::to_string(code); });
    return code;
}

int releaseInstance(const char* name, std::int32_t id) {
    record([&] { return "releaseInstance(" + std::string(name ? name : "null") + ", " + std::to_string(id) + ")"; });
    return destroyInstance(name, id);
}

int unregisterInstanceManager(const char* name) {
    const int code = name != nullptr && managers.erase(name) == 1 ? 0 : kBadRequest;
    record([&] { return "unregisterInstanceManager(" + std::string(name ? name : "null") + ") = " + std::to_string(code); });
    return code;
}

SparseFunctions sparse_functions = {
    .sparseClone = sparseClone,
    .sparseFree = sparseFree,
    .sparseValues = sparseValues,
    .sparsePointers = sparsePointers,
    .sparseIndices = sparseIndices,
};

HostFunctions functions = {
    .tensorNew = tensorNew,
    .tensorFree = tensorFree,
    .tensorClone = tensorClone,
    .tensorFlattenedLength = tensorFlattenedLength,
    .tensorIntegerData = tensorIntegerData,
    .tensorRealData = tensorRealData,
    .sparse = &sparse_functions,
    .registerInstanceManager = registerInstanceManager,
    .releaseInstance = releaseInstance,
    .unregisterInstanceManager = unregisterInstanceManager,
};

}  // namespace

HostData callbackTable() { return &functions; }

HostTensor newRealTensor(const std::vector<double>& values) {
    HostTensor made = makeTensor(KORVEX_HOST_REAL);
    made->reals = values;
    return made;
}

HostTensor newIntegerTensor(const std::vector<std::int32_t>& values) {
    HostTensor made = makeTensor(KORVEX_HOST_INTEGER);
    made->integers = values;
    return made;
}

std::int32_t tensorType(HostTensor tensor) { return tensor->type; }

std::vector<double> realValues(HostTensor tensor) { return tensor->reals; }

std::vector<std::int32_t> integerValues(HostTensor tensor) { return tensor->integers; }

void freeTensor(HostTensor tensor) { dropTensor(tensor); }

long liveTensorCount() { return live_tensors; }

HostSparse newSparse(std::int32_t rows, const std::vector<std::int32_t>& starts,
                     const std::vector<std::int32_t>& oneBasedRows, const std::vector<double>& values) {
    return makeSparse(rows, newRealTensor(values), newIntegerTensor(starts), newIntegerTensor(oneBasedRows));
}

HostSparse sparseFromDense(const std::vector<std::vector<double>>& rows) {
    const std::size_t m = rows.size();
    const std::size_t n = m == 0 ? 0 : rows[0].size();
    std::vector<std::int32_t> starts{0}, indices;
    std::vector<double> values;
    for (std::size_t j = 0; j < n; ++j) {
        for (std::size_t i = 0; i < m; ++i) {
            if (rows[i][j] == 0.0) continue;
            values.push_back(rows[i][j]);
            indices.push_back(static_cast<std::int32_t>(i) + 1);
        }
        starts.push_back(static_cast<std::int32_t>(values.size()));
    }
    return newSparse(static_cast<std::int32_t>(m), starts, indices, values);
}

void freeSparse(HostSparse sparse) { dropSparse(sparse); }

long liveSparseCount() { return live_sparse; }

std::optional<std::int32_t> createInstance(const char* name) {
    std::set<std::int32_t>& live = instances[name];
    while (live.count(next_id) != 0) ++next_id;
    const std::int32_t id = next_id++;
    if (!createInstanceWithId(name, id)) return std::nullopt;
    return id;
}

bool createInstanceWithId(const char* name, std::int32_t id) {
    const auto manager = managers.find(name);
    if (manager == managers.end()) return false;
    instances[name].insert(id);
    record([&] { return "manager(0, " + std::to_string(id) + ")"; });
    manager->second(&functions, 0, id);
    return true;
}

int destroyInstance(const char* name, std::int32_t id) {
    const auto manager = managers.find(name);
    if (manager == managers.end() || instances[name].erase(id) == 0) return kBadRequest;
    record([&] { return "manager(1, " + std::to_string(id) + ")"; });
    manager->second(&functions, 1, id);
    return 0;
}

std::vector<std::int32_t> liveInstances(const char* name) {
    const std::set<std::int32_t>& live = instances[name];
    return {live.begin(), live.end()};
}

bool managerRegistered(const char* name) { return managers.count(name) != 0; }

void failCallAt(HostCall call, long k) { countdown[static_cast<int>(call)] = k; }

void clearFailures() { std::fill(std::begin(countdown), std::end(countdown), 0L); }

}  // namespace standin

namespace standin {

void startRecording() {
    recording = true;
    recorded.clear();
    names.clear();
    named_tensors = named_sparse = 0;
}

void stopRecording() { recording = false; }

void nameHandle(const void* handle, const std::string& name) { names[handle] = name; }

std::vector<std::string> takeRecordedCalls() { return std::exchange(recorded, {}); }

}  // namespace standin
