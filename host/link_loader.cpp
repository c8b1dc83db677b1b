#include "host/link_loader.h"

#include <dlfcn.h>

#include <iterator>

namespace {

// dlsym gives an object pointer; POSIX guarantees that it converts to the function's type.
template <class Function>
void** slot(Function* function) {
    return reinterpret_cast<void**>(function);
}

}  // namespace

const FieldAccessor kFieldAccessors[] = {
    {"KorvexSolutionMap_ret_x", &KorvexLink::ret_x},
    {"KorvexSolutionMap_ret_y", &KorvexLink::ret_y},
    {"KorvexSolutionMap_ret_s", &KorvexLink::ret_s},
    {"KorvexSolutionMap_ret_iter", &KorvexLink::ret_iter},
    {"KorvexSolutionMap_ret_status", &KorvexLink::ret_status},
    {"KorvexSolutionMap_ret_statusVal", &KorvexLink::ret_statusVal},
    {"KorvexSolutionMap_ret_pobj", &KorvexLink::ret_pobj},
    {"KorvexSolutionMap_ret_dobj", &KorvexLink::ret_dobj},
    {"KorvexSolutionMap_ret_resPri", &KorvexLink::ret_resPri},
    {"KorvexSolutionMap_ret_resDual", &KorvexLink::ret_resDual},
    {"KorvexSolutionMap_ret_resInfeas", &KorvexLink::ret_resInfeas},
    {"KorvexSolutionMap_ret_resUnbdd", &KorvexLink::ret_resUnbdd},
    {"KorvexSolutionMap_ret_relGap", &KorvexLink::ret_relGap},
    {"KorvexSolutionMap_ret_setupTime", &KorvexLink::ret_setupTime},
    {"KorvexSolutionMap_ret_solveTime", &KorvexLink::ret_solveTime},
};
const int kFieldAccessorCount = sizeof(kFieldAccessors) / sizeof(kFieldAccessors[0]);

namespace {

// The exports other than the field accessors, in the order of their slots in KorvexLink.
const char* const kEntryExports[] = {
    "TolvaneLibrary_getVersion",   "TolvaneLibrary_initialize", "TolvaneLibrary_uninitialize",
    "KorvexSolutionMap_manage",    "KorvexLinkSolve",           "KorvexSolutionMap_delete",
    "KorvexSolutionMap_retIDList",
};

}  // namespace

std::vector<std::string> korvexLinkExportNames() {
    std::vector<std::string> names(std::begin(kEntryExports), std::end(kEntryExports));
    for (const FieldAccessor& accessor : kFieldAccessors) names.emplace_back(accessor.name);
    return names;
}

bool openKorvexLink(const char* path, KorvexLink* link, std::string* error) {
    *link = KorvexLink{};
    link->handle = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (link->handle == nullptr) {
        *error = dlerror();
        return false;
    }
    void** const entry_targets[] = {slot(&link->getVersion), slot(&link->initialize), slot(&link->uninitialize),
                                    slot(&link->manage),     slot(&link->solve),      slot(&link->remove),
                                    slot(&link->idList)};
    static_assert(std::size(entry_targets) == std::size(kEntryExports));
    auto resolve = [&](const char* name, void** target) {
        *target = dlsym(link->handle, name);
        if (*target != nullptr) return true;
        *error = std::string("missing export ") + name;
        closeKorvexLink(link);
        return false;
    };
    for (std::size_t k = 0; k < std::size(kEntryExports); ++k) {
        if (!resolve(kEntryExports[k], entry_targets[k])) return false;
    }
    for (const FieldAccessor& accessor : kFieldAccessors) {
        if (!resolve(accessor.name, slot(&(link->*accessor.function)))) return false;
    }
    return true;
}

void closeKorvexLink(KorvexLink* link) {
    if (link->handle != nullptr) dlclose(link->handle);
    *link = KorvexLink{};
}
