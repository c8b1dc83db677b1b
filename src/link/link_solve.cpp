// KorvexLinkSolve: the host's positional arguments become the solver's records, one
// solve runs, its result goes into the solution store, and everything made for the call
// is released again.
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <type_traits>

#include "core/solver.h"
#include "link/korvex_link.h"
#include "link/link.h"
#include "linsys/linsys.h"
#include "reporting/allocation.h"
#include "reporting/print.h"
#include "reporting/timing.h"

using namespace korvex;

namespace {

// Positions of the problem arguments; the options follow from kFirstOptionPosition on,
// where the settings table places them.
enum ProblemPosition : int {
    kIdPosition = 0,
    kBPosition = 1,
    kCPosition = 2,
    kAPosition = 3,
    kFreeVarsPosition = 4,
    kLinearVarsPosition = 5,
    kSocSizesPosition = 6,
    kSdSizesPosition = 7,
    kExpTriplesPosition = 8,
    kDualExpTriplesPosition = 9,
    kPowerExponentsPosition = 10,
};

// The data of a host tensor of the element type T; null when the host gives none.
template <class T>
T* tensorData(HostData host, HostTensor tensor) {
    if constexpr (std::is_same_v<T, double>) {
        return host->tensorRealData(tensor);
    } else {
        return host->tensorIntegerData(tensor);
    }
}

// A new array of count elements at *copy, filled from the tensor's data. The data of an
// empty tensor are not read. False when the allocation fails or the host has no data.
template <class T>
bool copyTensor(HostData host, HostTensor tensor, std::int32_t count, T** copy) {
    *copy = allocateArray<T>(count);
    if (*copy == nullptr) return false;
    if (count == 0) return true;
    const T* source = tensorData<T>(host, tensor);
    if (source == nullptr) return false;
    std::memcpy(*copy, source, sizeof(T) * static_cast<std::size_t>(count));
    return true;
}

// A cone array: only a non-zero count gets one.
template <class T>
bool copyConeArray(HostData host, HostTensor tensor, std::int32_t count, T** copy) {
    return count == 0 || copyTensor(host, tensor, count, copy);
}

// The flattened length of one of the three tensors of a sparse array, or -1 when the
// host gives no tensor.
std::int64_t sparsePartLength(HostData host, HostTensor* part) {
    if (part == nullptr || *part == nullptr) return -1;
    return host->tensorFlattenedLength(*part);
}

// A[:, j] from the host's sparse clone: starts as they are, rows made zero-based.
// Returns false on a refusal; what was allocated is already linked into A.
bool fillMatrix(HostData host, HostSparse sparse, std::int32_t n, SparseMatrix* A) {
    const SparseFunctions* functions = host->sparse;
    HostTensor* pointers = functions->sparsePointers(sparse);
    if (sparsePartLength(host, pointers) != static_cast<std::int64_t>(n) + 1) return false;
    if (!copyTensor(host, *pointers, n + 1, &A->p)) return false;

    // A matrix without stored values never reaches the validation of the solve.
    const std::int32_t nnz = A->p[n];
    if (nnz <= 0) return false;

    HostTensor* indices = functions->sparseIndices(sparse);
    if (sparsePartLength(host, indices) != nnz) return false;
    if (!copyTensor(host, *indices, nnz, &A->i)) return false;
    // i(k) = index(k) - 1; an index below 1 becomes -1, which the validation refuses.
    for (std::int32_t k = 0; k < nnz; ++k) A->i[k] = A->i[k] >= 1 ? A->i[k] - 1 : -1;

    HostTensor* values = functions->sparseValues(sparse);
    if (sparsePartLength(host, values) != nnz) return false;
    return copyTensor(host, *values, nnz, &A->x);
}

}  // namespace

LinkInput korvex::readProblemArguments(HostData host, HostArgument* arguments) {
    LinkInput read{};
    read.b = tensorArgument(arguments, kBPosition);
    read.c = tensorArgument(arguments, kCPosition);
    read.A = sparseArgument(arguments, kAPosition);
    read.free_vars = integerArgument(arguments, kFreeVarsPosition);
    read.linear_vars = integerArgument(arguments, kLinearVarsPosition);
    read.soc_sizes = tensorArgument(arguments, kSocSizesPosition);
    read.sd_sizes = tensorArgument(arguments, kSdSizesPosition);
    read.exp_triples = integerArgument(arguments, kExpTriplesPosition);
    read.dual_exp_triples = integerArgument(arguments, kDualExpTriplesPosition);
    read.power_exponents = tensorArgument(arguments, kPowerExponentsPosition);
    read.m = host->tensorFlattenedLength(read.b);
    read.n = host->tensorFlattenedLength(read.c);
    read.soc_blks = host->tensorFlattenedLength(read.soc_sizes);
    read.sd_blks = host->tensorFlattenedLength(read.sd_sizes);
    read.power_triples = host->tensorFlattenedLength(read.power_exponents);
    return read;
}

LinkInput* korvex::buildLinkInput(HostData host, const LinkInput* arguments) {
    LinkInput* input = createRecord<LinkInput>();
    if (input == nullptr) return nullptr;
    *input = *arguments;
    // Clones replace the host's handles, in this order; the argument objects are never
    // written. A clone that fails has made nothing, and the ones before it are freed.
    HostTensor LinkInput::*const tensors[] = {&LinkInput::b, &LinkInput::c, &LinkInput::soc_sizes,
                                              &LinkInput::sd_sizes, &LinkInput::power_exponents};
    for (HostTensor LinkInput::*tensor : tensors) input->*tensor = nullptr;
    input->A = nullptr;
    for (HostTensor LinkInput::*tensor : tensors) {
        if (host->tensorClone(arguments->*tensor, &(input->*tensor)) != 0) {
            input->*tensor = nullptr;
            releaseLinkInput(host, input);
            return nullptr;
        }
    }
    if (host->sparse->sparseClone(arguments->A, &input->A) != 0) {
        input->A = nullptr;
        releaseLinkInput(host, input);
        return nullptr;
    }
    return input;
}

LinkSettings* korvex::buildLinkSettings(HostArgument* arguments) {
    LinkSettings* settings = createRecord<LinkSettings>();
    if (settings == nullptr) return nullptr;
    for (const SettingDescriptor& option : kSettingDescriptors) {
        LinkSettings::Value& slot = settings->at[option.link_position - kFirstOptionPosition];
        if (option.from_text != nullptr) {
            slot.integer = option.from_text(textArgument(arguments, option.link_position));
        } else if (option.int_field != nullptr) {
            slot.integer = integerArgument(arguments, option.link_position);
        } else {
            slot.real = realArgument(arguments, option.link_position);
        }
    }
    return settings;
}

int korvex::fillProblemRecords(HostData host, Data* data, Cone* cone, const LinkInput* input, const LinkSettings* settings) {
    constexpr int kRefused = 1;
    const std::int32_t m = input->m, n = input->n;
    data->m = m;
    data->n = n;
    if (!copyTensor(host, input->b, m, &data->b) || !copyTensor(host, input->c, n, &data->c)) return kRefused;

    SparseMatrix* A = static_cast<SparseMatrix*>(allocateZeroed(1, sizeof(SparseMatrix)));
    if (A == nullptr) return kRefused;
    A->m = m;
    A->n = n;
    data->A = A;  // linked at once, so that a refusal below releases it
    if (!fillMatrix(host, input->A, n, A)) return kRefused;

    Settings* s = static_cast<Settings*>(allocateZeroed(1, sizeof(Settings)));
    if (s == nullptr) return kRefused;
    data->settings = s;
    setDefaultSettings(s);
    for (const SettingDescriptor& option : kSettingDescriptors) {
        const LinkSettings::Value& slot = settings->at[option.link_position - kFirstOptionPosition];
        if (option.int_field != nullptr) {
            s->*option.int_field = slot.integer;
        } else {
            s->*option.double_field = slot.real;
        }
    }
    s->stream_override = 0;
    s->output_stream = stdout;

    cone->free_vars = input->free_vars;
    cone->linear_vars = input->linear_vars;
    cone->soc_blks = input->soc_blks;
    cone->sd_blks = input->sd_blks;
    cone->exp_triples = input->exp_triples;
    cone->dual_exp_triples = input->dual_exp_triples;
    cone->power_triples = input->power_triples;
    if (!copyConeArray(host, input->soc_sizes, input->soc_blks, &cone->soc_sizes) ||
        !copyConeArray(host, input->sd_sizes, input->sd_blks, &cone->sd_sizes) ||
        !copyConeArray(host, input->power_exponents, input->power_triples, &cone->power_exponents)) {
        return kRefused;
    }
    return 0;
}

void korvex::releaseProblemRecords(Data* data, Cone* cone) {
    if (data != nullptr) {
        releaseMemory(data->b);
        releaseMemory(data->c);
        releaseMemory(data->settings);
        freeMatrix(data->A);
        releaseMemory(data);
    }
    if (cone != nullptr) {
        releaseMemory(cone->soc_sizes);
        releaseMemory(cone->sd_sizes);
        releaseMemory(cone->power_exponents);
        releaseMemory(cone);
    }
}

void korvex::releaseSolution(Solution* solution) {
    if (solution == nullptr) return;
    releaseMemory(solution->x);
    releaseMemory(solution->y);
    releaseMemory(solution->s);
    releaseMemory(solution);
}

void korvex::releaseLinkInput(HostData host, LinkInput* input) {
    if (input == nullptr) return;
    for (HostTensor clone : {input->b, input->c, input->soc_sizes, input->sd_sizes, input->power_exponents}) {
        if (clone != nullptr) host->tensorFree(clone);
    }
    if (input->A != nullptr) host->sparse->sparseFree(input->A);
    destroyRecord(input);
}

std::int32_t korvex::linkSolve(HostData host, HostArgument* arguments, HostArgument result) {
    std::int32_t status = KORVEX_FAILED;
    const auto answer = [&] {
        if (result != nullptr) *static_cast<std::int32_t*>(result) = status;
        return status;
    };
    host = callbackTable(host);
    if (host == nullptr || arguments == nullptr) return answer();
    for (int k = 0; k < kSolveArgumentCount; ++k) {
        if (arguments[k] == nullptr) return answer();
    }
    // The result has nowhere to go without an instance, so there is nothing to solve for.
    const std::int32_t id = integerArgument(arguments, kIdPosition);
    if (findInstance(id) == nullptr) {
        printTo(0, stderr, "ERROR: no solution instance for id %d\n", static_cast<int>(id));
        return answer();
    }

    const LinkInput read = readProblemArguments(host, arguments);
    LinkInput* input = buildLinkInput(host, &read);
    LinkSettings* settings = buildLinkSettings(arguments);

    Info info{};
    Cone* cone = static_cast<Cone*>(allocateZeroed(1, sizeof(Cone)));
    Data* data = static_cast<Data*>(allocateZeroed(1, sizeof(Data)));
    Solution* solution = static_cast<Solution*>(allocateZeroed(1, sizeof(Solution)));

    if (input != nullptr && settings != nullptr && cone != nullptr && data != nullptr && solution != nullptr &&
        fillProblemRecords(host, data, cone, input, settings) == 0) {
        solveConeProgram(data, cone, solution, &info);
        // The host's own SIGINT action is back, whichever way the solve ended.
        endInterruptListener();
        const SolutionInstance* instance = storeSolution(host, id, solution, &info, data);
        status = instance != nullptr ? instance->statusVal : info.statusVal;
    }

    // The progress history a Marlet solve may leave in info reaches no accessor.
    releaseProgressArrays(&info);
    releaseProblemRecords(data, cone);
    releaseSolution(solution);
    answer();
    releaseLinkInput(host, input);
    destroyRecord(settings);
    return status;
}

int KorvexLinkSolve(HostData host, std::int32_t /*argumentCount*/, HostArgument* arguments,
                    HostArgument result) noexcept {
    const int completed = guardExport([&] {
        linkSolve(host, arguments, result);
        return kLinkOk;
    });
    // Even then the host learns that the solve failed.
    if (completed != kLinkOk && result != nullptr) *static_cast<std::int32_t*>(result) = KORVEX_FAILED;
    return kLinkOk;
}
