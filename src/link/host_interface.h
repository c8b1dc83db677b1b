/* The host application's callback table, as the library sees it.
 *
 * The host hands this table to TolvaneLibrary_initialize and again to every export. Its
 * layout is the contract with any host that loads the library: the slots are called in
 * this order and with these types, and nothing else of the host is assumed. Tensors and
 * sparse arrays are opaque host handles; the library reaches their contents only through
 * these functions.
 *
 * Plain C, so that a host written in C can include it as it stands.
 */
#ifndef KORVEX_LINK_HOST_INTERFACE_H
#define KORVEX_LINK_HOST_INTERFACE_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct HostTensorRecord *HostTensor;   /* opaque host handles */
typedef struct HostSparseRecord *HostSparse;
typedef void *HostArgument;                    /* points at an int32_t, a double, a HostTensor, a HostSparse, or a char* */
typedef struct HostFunctions *HostData;
typedef void (*InstanceManager)(HostData host, int32_t mode, int32_t id);

/* Sparse arrays, compressed by columns: n + 1 start positions, one one-based row index
 * and one value per stored entry. The three tensors are the array's own and only read. */
typedef struct SparseFunctions {
    int (*sparseClone)(HostSparse source, HostSparse *copy);  /* 0 and an independent copy */
    void (*sparseFree)(HostSparse sparse);
    HostTensor *(*sparseValues)(HostSparse sparse);            /* real tensor of the values */
    HostTensor *(*sparsePointers)(HostSparse sparse);          /* integer tensor of the starts */
    HostTensor *(*sparseIndices)(HostSparse sparse);           /* integer tensor, one-based rows */
} SparseFunctions;

struct HostFunctions {
    /* type 2 integer, 3 real; 0 and a new tensor, or a non-zero error code */
    int (*tensorNew)(int32_t type, int32_t rank, const int32_t *dims, HostTensor *tensor);
    void (*tensorFree)(HostTensor tensor);
    int (*tensorClone)(HostTensor source, HostTensor *copy);   /* 0 and an independent copy */
    int32_t (*tensorFlattenedLength)(HostTensor tensor);
    int32_t *(*tensorIntegerData)(HostTensor tensor);
    double *(*tensorRealData)(HostTensor tensor);              /* writable on a new tensor */
    SparseFunctions *sparse;
    /* The host calls manager(host, 0, id) when it creates an instance and
     * manager(host, non-zero, id) when it destroys one. */
    int (*registerInstanceManager)(const char *name, InstanceManager manager);
    int (*releaseInstance)(const char *name, int32_t id);      /* destroys through the manager */
    int (*unregisterInstanceManager)(const char *name);
};

/* Host tensor types. */
#define KORVEX_HOST_INTEGER 2
#define KORVEX_HOST_REAL 3

#ifdef __cplusplus
}
#endif

#endif
