// The store of solution instances: the host names each result by an id of its own
// choosing, creates and destroys it through the manager, and reads it field by field.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <type_traits>

#include "link/korvex_link.h"
#include "link/link.h"
#include "reporting/allocation.h"
#include "reporting/print.h"

using namespace korvex;

std::unordered_map<std::int32_t, SolutionInstance*> korvex::solutionMap;

SolutionInstance* korvex::findInstance(std::int32_t id) {
    const auto entry = solutionMap.find(id);
    return entry == solutionMap.end() ? nullptr : entry->second;
}

namespace {

// Frees the three vectors of instance and clears every field: the state of a new one.
void clearInstance(HostData host, SolutionInstance* instance) {
    for (HostTensor vector : {instance->x, instance->y, instance->s}) {
        if (vector != nullptr && host != nullptr) host->tensorFree(vector);
    }
    *instance = SolutionInstance{};
}

// The instance named by the one argument of an accessor, or null for a count other than
// 1, a missing argument or result slot, or an id without instance.
SolutionInstance* accessedInstance(std::int32_t argumentCount, HostArgument* arguments, HostArgument result) {
    if (argumentCount != 1 || arguments == nullptr || arguments[0] == nullptr || result == nullptr) return nullptr;
    return findInstance(integerArgument(arguments, 0));
}

// Writes a scalar field of the instance through result.
template <auto field>
int returnField(std::int32_t argumentCount, HostArgument* arguments, HostArgument result) {
    return guardExport([&] {
        const SolutionInstance* instance = accessedInstance(argumentCount, arguments, result);
        if (instance == nullptr) return kLinkBadArguments;
        using Value = std::remove_cvref_t<decltype(instance->*field)>;
        *static_cast<Value*>(result) = instance->*field;
        return kLinkOk;
    });
}

// Writes a clone of a vector of the instance through result, which the host then owns;
// a null tensor while the instance holds none. A failing clone returns the host's code
// with result unwritten.
int returnVector(HostData host, HostTensor SolutionInstance::*field, std::int32_t argumentCount,
                 HostArgument* arguments, HostArgument result) {
    return guardExport([&] {
        const SolutionInstance* instance = accessedInstance(argumentCount, arguments, result);
        host = callbackTable(host);
        if (instance == nullptr || host == nullptr) return kLinkBadArguments;
        HostTensor clone = nullptr;
        if (instance->*field != nullptr) {
            const int code = host->tensorClone(instance->*field, &clone);
            if (code != 0) return code;
        }
        *static_cast<HostTensor*>(result) = clone;
        return kLinkOk;
    });
}

}  // namespace

int korvex::copyToHostTensor(HostData host, const double* source, std::int32_t length, HostTensor* slot) {
    if (*slot != nullptr) {
        host->tensorFree(*slot);
        *slot = nullptr;
    }
    const std::int32_t dims[1] = {length};
    const int code = host->tensorNew(KORVEX_HOST_REAL, 1, dims, slot);
    if (code != 0) {
        *slot = nullptr;
        return code;
    }
    if (length == 0) return 0;
    double* target = host->tensorRealData(*slot);
    if (target == nullptr) {
        host->tensorFree(*slot);
        *slot = nullptr;
        return -1;
    }
    if (source != nullptr) {
        std::memcpy(target, source, sizeof(double) * static_cast<std::size_t>(length));
    } else {
        std::fill(target, target + length, std::numeric_limits<double>::quiet_NaN());
    }
    return 0;
}

SolutionInstance* korvex::storeSolution(HostData host, std::int32_t id, const Solution* solution, const Info* info,
                                const Data* data) {
    SolutionInstance* instance = findInstance(id);
    if (instance == nullptr) return nullptr;
    struct Vector {
        const char* name;
        const double* source;
        std::int32_t length;
        HostTensor* slot;
    };
    const Vector vectors[] = {{"x", solution->x, data->n, &instance->x},
                              {"y", solution->y, data->m, &instance->y},
                              {"s", solution->s, data->m, &instance->s}};
    for (const Vector& vector : vectors) {
        const int code = copyToHostTensor(host, vector.source, vector.length, vector.slot);
        if (code != 0) {
            printTo(0, stderr, "WARNING: the host could not hold the vector %s (code %d); it is not stored\n",
                    vector.name, code);
        }
    }
    instance->iter = info->iter;
    std::memcpy(instance->status, info->status, sizeof instance->status);
    instance->status[kStatusTextLength - 1] = '\0';
    instance->statusVal = info->statusVal;
    instance->pobj = info->pobj;
    instance->dobj = info->dobj;
    instance->resPri = info->resPri;
    instance->resDual = info->resDual;
    instance->resInfeas = info->resInfeas;
    instance->resUnbdd = info->resUnbdd;
    instance->relGap = info->relGap;
    instance->setupTime = info->setupTime;
    instance->solveTime = info->solveTime;
    return instance;
}

void KorvexSolutionMap_manage(HostData host, std::int32_t mode, std::int32_t id) noexcept {
    guardExport([&] {
        host = callbackTable(host);
        SolutionInstance* instance = findInstance(id);
        if (mode == 0) {
            // The host made a new instance under an id we still hold: it starts empty.
            if (instance != nullptr) {
                clearInstance(host, instance);
                return kLinkOk;
            }
            instance = createRecord<SolutionInstance>();
            if (instance == nullptr) return kLinkInternalError;  // the id stays without instance
            try {
                solutionMap.emplace(id, instance);
            } catch (...) {
                destroyRecord(instance);
                throw;
            }
            return kLinkOk;
        }
        if (instance == nullptr) return kLinkOk;
        clearInstance(host, instance);
        solutionMap.erase(id);
        destroyRecord(instance);
        return kLinkOk;
    });
}

int KorvexSolutionMap_delete(HostData host, std::int32_t argumentCount, HostArgument* arguments,
                             HostArgument /*result*/) noexcept {
    return guardExport([&] {
        if (argumentCount != 1 || arguments == nullptr || arguments[0] == nullptr) return kLinkBadArguments;
        const std::int32_t id = integerArgument(arguments, 0);
        host = callbackTable(host);
        if (findInstance(id) == nullptr || host == nullptr) return kLinkBadArguments;
        // The host answers by calling the manager, which frees the instance.
        return host->releaseInstance(kInstanceManagerName, id);
    });
}

int KorvexSolutionMap_retIDList(HostData host, std::int32_t /*argumentCount*/, HostArgument* /*arguments*/,
                                HostArgument result) noexcept {
    return guardExport([&] {
        host = callbackTable(host);
        if (host == nullptr || result == nullptr) return kLinkBadArguments;
        const std::int32_t dims[1] = {static_cast<std::int32_t>(solutionMap.size())};
        HostTensor ids = nullptr;
        const int code = host->tensorNew(KORVEX_HOST_INTEGER, 1, dims, &ids);
        if (code != 0) return code;
        if (dims[0] > 0) {
            std::int32_t* target = host->tensorIntegerData(ids);
            if (target == nullptr) {
                host->tensorFree(ids);
                return kLinkInternalError;
            }
            for (const auto& [id, instance] : solutionMap) *target++ = id;
        }
        *static_cast<HostTensor*>(result) = ids;
        return kLinkOk;
    });
}

int KorvexSolutionMap_ret_x(HostData host, std::int32_t argumentCount, HostArgument* arguments,
                            HostArgument result) noexcept {
    return returnVector(host, &SolutionInstance::x, argumentCount, arguments, result);
}

int KorvexSolutionMap_ret_y(HostData host, std::int32_t argumentCount, HostArgument* arguments,
                            HostArgument result) noexcept {
    return returnVector(host, &SolutionInstance::y, argumentCount, arguments, result);
}

int KorvexSolutionMap_ret_s(HostData host, std::int32_t argumentCount, HostArgument* arguments,
                            HostArgument result) noexcept {
    return returnVector(host, &SolutionInstance::s, argumentCount, arguments, result);
}

int KorvexSolutionMap_ret_status(HostData /*host*/, std::int32_t argumentCount, HostArgument* arguments,
                                 HostArgument result) noexcept {
    return guardExport([&] {
        SolutionInstance* instance = accessedInstance(argumentCount, arguments, result);
        if (instance == nullptr) return kLinkBadArguments;
        // The instance's own text, not a copy: valid while the instance lives.
        *static_cast<char**>(result) = instance->status;
        return kLinkOk;
    });
}

// The scalar fields, each written as its own type (int32_t or double).
#define KORVEX_SCALAR_ACCESSOR(field)                                                                          \
    int KorvexSolutionMap_ret_##field(HostData /*host*/, std::int32_t argumentCount, HostArgument* arguments, \
                                      HostArgument result) noexcept {                                          \
        return returnField<&SolutionInstance::field>(argumentCount, arguments, result);                        \
    }

KORVEX_SCALAR_ACCESSOR(iter)
KORVEX_SCALAR_ACCESSOR(statusVal)
KORVEX_SCALAR_ACCESSOR(pobj)
KORVEX_SCALAR_ACCESSOR(dobj)
KORVEX_SCALAR_ACCESSOR(resPri)
KORVEX_SCALAR_ACCESSOR(resDual)
KORVEX_SCALAR_ACCESSOR(resInfeas)
KORVEX_SCALAR_ACCESSOR(resUnbdd)
KORVEX_SCALAR_ACCESSOR(relGap)
KORVEX_SCALAR_ACCESSOR(setupTime)
KORVEX_SCALAR_ACCESSOR(solveTime)

#undef KORVEX_SCALAR_ACCESSOR
