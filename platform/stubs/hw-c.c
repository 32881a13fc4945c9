#include "stub.h"

#include <ivra/hw.h>

int ivra_hw_prop_get_index(const ivra_hw_properties *, uint32_t *) { return failure(); }
int ivra_hw_prop_get_name(const ivra_hw_properties *, char *, size_t) { return failure(); }
int ivra_hw_prop_get_uid(const ivra_hw_properties *, char *, size_t) { return failure(); }
size_t ivra_hw_count_accelerators(void) { return nothing(); }
int ivra_hw_enumerate_all_accelerators(const ivra_hw_accelerator_descriptor **, size_t) { return failure(); }
int ivra_hw_enumerate_accelerators(const ivra_hw_filter *, const ivra_hw_accelerator_descriptor **,
                                   size_t) { return failure(); }
void ivra_hw_accelerator_put_descriptor(const ivra_hw_accelerator_descriptor *) {}
const ivra_hw_properties *ivra_hw_accelerator_get_properties(const ivra_hw_accelerator_descriptor *) { return no_handle(); }
ivra_hw_filter *ivra_hw_filter_create(void) { return no_handle(); }
int ivra_hw_filter_set_index(ivra_hw_filter *, uint32_t) { return failure(); }
int ivra_hw_filter_set_name(ivra_hw_filter *, const char *) { return failure(); }
void ivra_hw_filter_destroy(ivra_hw_filter *) {}
ivra_hw_accelerator *ivra_hw_accelerator_get(const ivra_hw_accelerator_descriptor *) { return no_handle(); }
void ivra_hw_accelerator_put(ivra_hw_accelerator *) {}
size_t ivra_hw_accelerator_count_mmios(const ivra_hw_accelerator *) { return nothing(); }
int ivra_hw_accelerator_enumerate_all_mmios(ivra_hw_accelerator *, const ivra_hw_mmio_descriptor **,
                                            size_t) { return failure(); }
void ivra_hw_mmio_put_descriptor(const ivra_hw_mmio_descriptor *) {}
const ivra_hw_properties *ivra_hw_mmio_descriptor_get_properties(const ivra_hw_mmio_descriptor *) { return no_handle(); }
ivra_hw_mmio *ivra_hw_mmio_create(const ivra_hw_mmio_descriptor *) { return no_handle(); }
const ivra_hw_mmio_descriptor *ivra_hw_mmio_get_descriptor(const ivra_hw_mmio *) { return no_handle(); }
void ivra_hw_mmio_destroy(ivra_hw_mmio *) {}
ivra_hw_core_tree *ivra_hw_enumerate_cores(ivra_hw_mmio *) { return no_handle(); }
void ivra_hw_destroy_tree(ivra_hw_core_tree *) {}
ivra_hw_core *ivra_hw_core_tree_get_root(ivra_hw_core_tree *) { return no_handle(); }
int ivra_hw_core_enumerate(ivra_hw_core *, uint32_t, ivra_hw_core **, size_t) { return failure(); }
int ivra_hw_read(ivra_hw_core *, const ivra_hw_register_description *, uint64_t *) { return failure(); }
int ivra_hw_write(ivra_hw_core *, const ivra_hw_register_description *, uint64_t) { return failure(); }
ivra_hw_shared_mutex *ivra_hw_shared_mutex_create(const char *) { return no_handle(); }
int ivra_hw_shared_mutex_lock(ivra_hw_shared_mutex *) { return failure(); }
int ivra_hw_shared_mutex_trylock(ivra_hw_shared_mutex *) { return failure(); }
int ivra_hw_shared_mutex_unlock(ivra_hw_shared_mutex *) { return failure(); }
void ivra_hw_shared_mutex_destroy(ivra_hw_shared_mutex *) {}
