#include "plugin/dlclass.h"

#include <dlfcn.h>
#include <link.h>

namespace {

/** One more reference to a loaded library; it is found by its name, without a look at the disk. */
void *referenceTo(void *handle)
{
    link_map *map = nullptr;
    if (handle == nullptr || dlinfo(handle, RTLD_DI_LINKMAP, &map) != 0 || map == nullptr)
        return nullptr;
    return dlopen(map->l_name, RTLD_NOW | RTLD_NOLOAD);
}

} // namespace

DLClass::DLClass(const DLClass &other)
    : m_handle(referenceTo(other.m_handle))
{}

DLClass &DLClass::operator=(const DLClass &other)
{
    if (this != &other)
        share(other);
    return *this;
}

void DLClass::share(const DLClass &other)
{
    Unload();
    m_handle = referenceTo(other.m_handle);
}

void *DLClass::GetSymbol(const char *name)
{
    return dlsym(m_handle, name);
}

bool DLClass::GetAllSymbols()
{
    return true;
}

DLClass::~DLClass()
{
    if (m_handle != nullptr)
        dlclose(m_handle); // as Unload() does; there are no symbols of a derived class left to clear
}

bool DLClass::Load(const std::string &name)
{
    return Load(name.c_str());
}

bool DLClass::Load(const char *name)
{
    Unload();
    if (name == nullptr || *name == '\0')
        return false;
    m_handle = dlopen(name, RTLD_NOW);
    return m_handle != nullptr && GetAllSymbols();
}

bool DLClass::Unload()
{
    if (m_handle == nullptr)
        return true;
    ClearAllSymbols();
    if (dlclose(m_handle) != 0)
        return false;
    m_handle = nullptr;
    return true;
}

bool DLClass::IsLoaded()
{
    return m_handle != nullptr;
}

std::string DLClass::GetLastErrorStr()
{
    const char *const text = dlerror(); // NOLINT(concurrency-mt-unsafe): its state is per thread
    return text == nullptr ? std::string() : std::string(text);
}

void DLClass::ClearAllSymbols() {}
