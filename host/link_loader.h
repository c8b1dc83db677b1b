// Loads KorvexLink as the closed host does: dlopen of the shared library, then dlsym of
// every export by its C name. Nothing of the library is linked into the host.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "link/korvex_link.h"

// The library's exports, resolved.
struct KorvexLink {
    void* handle = nullptr;
    std::int32_t (*getVersion)() = nullptr;
    int (*initialize)(HostData) = nullptr;
    void (*uninitialize)(HostData) = nullptr;
    InstanceManager manage = nullptr;
    KorvexLinkFunction solve = nullptr;
    KorvexLinkFunction remove = nullptr;  // KorvexSolutionMap_delete
    KorvexLinkFunction idList = nullptr;
    KorvexLinkFunction ret_x = nullptr;
    KorvexLinkFunction ret_y = nullptr;
    KorvexLinkFunction ret_s = nullptr;
    KorvexLinkFunction ret_iter = nullptr;
    KorvexLinkFunction ret_status = nullptr;
    KorvexLinkFunction ret_statusVal = nullptr;
    KorvexLinkFunction ret_pobj = nullptr;
    KorvexLinkFunction ret_dobj = nullptr;
    KorvexLinkFunction ret_resPri = nullptr;
    KorvexLinkFunction ret_resDual = nullptr;
    KorvexLinkFunction ret_resInfeas = nullptr;
    KorvexLinkFunction ret_resUnbdd = nullptr;
    KorvexLinkFunction ret_relGap = nullptr;
    KorvexLinkFunction ret_setupTime = nullptr;
    KorvexLinkFunction ret_solveTime = nullptr;
};

// The names of the exports a host calls, 22 of them.
std::vector<std::string> korvexLinkExportNames();

// The fifteen field accessors by name, for hosts (and tests) that walk all of them.
struct FieldAccessor {
    const char* name;
    KorvexLinkFunction KorvexLink::*function;
};
extern const FieldAccessor kFieldAccessors[];
extern const int kFieldAccessorCount;

// Opens the library at path and resolves every export. On failure returns false with the
// reason in *error, and nothing stays open.
bool openKorvexLink(const char* path, KorvexLink* link, std::string* error);

// Closes the library; the exports are unusable afterwards.
void closeKorvexLink(KorvexLink* link);
