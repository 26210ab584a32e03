// Loading the filter.
#include "host/standin/standin.h"

#include <dlfcn.h>
#include <stdexcept>
#include <unistd.h>

namespace standin {

namespace {

// The file of that name beside the kernel's own library, or the name itself where there is none.
std::string BesideKernel(const std::string& library) {
    static const char ownAddress = 0;
    Dl_info own;
    if (library.find('/') != std::string::npos || dladdr(&ownAddress, &own) == 0)
        return library;
    const std::string kernel = own.dli_fname;
    const std::string beside = kernel.substr(0, kernel.rfind('/') + 1) + library;
    return access(beside.c_str(), R_OK) == 0 && beside != library ? beside : library;
}

template <typename Function>
Function Required(void* library, const char* name) {
    void* const address = dlsym(library, name);
    if (!address)
        throw std::runtime_error(std::string("the filter lacks ") + name);
    return reinterpret_cast<Function>(address);
}

template <typename Function>
void FindOptional(void* library, const char* name, Function& function) {
    function = reinterpret_cast<Function>(dlsym(library, name));
}

} // namespace

Filter LoadFilter(const std::string& library) {
    void* const handle = dlopen(BesideKernel(library).c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!handle) {
        const char* const reason = dlerror();
        throw std::runtime_error(reason ? reason : "the filter cannot be loaded");
    }
    Filter filter{};
    filter.Info = Required<decltype(filter.Info)>(handle, "fltInfo");
    filter.Load = Required<decltype(filter.Load)>(handle, "fltLoad");
    FindOptional(handle, "fltSave", filter.Save);
    FindOptional(handle, "K_LoadTiledFax", filter.LoadTiled);
    FindOptional(handle, "K_SaveTiledFax", filter.SaveTiled);
    filter.Library = handle;
    return filter;
}

} // namespace standin
