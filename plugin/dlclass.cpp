#include "plugin/dlclass.h"

#include <dlfcn.h>

#include <utility>

DLClass::Mapping::~Mapping()
{
    if (handle != nullptr)
        dlclose(handle);
}

DLClass &DLClass::operator=(const DLClass &other)
{
    if (this != &other) {
        Unload();
        m_mapping = other.m_mapping;
    }
    return *this;
}

void *DLClass::GetSymbol(const char *name)
{
    return dlsym(GetDLHandle(), name);
}

bool DLClass::GetAllSymbols()
{
    return true;
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
    m_mapping.reset();
    auto mapping = std::make_shared<Mapping>();
    mapping->handle = dlopen(name, RTLD_NOW);
    if (mapping->handle == nullptr)
        return false;
    m_mapping = std::move(mapping);
    return GetAllSymbols();
}

bool DLClass::Unload()
{
    if (!m_mapping)
        return true;
    ClearAllSymbols();
    if (m_mapping.use_count() == 1) {
        if (dlclose(m_mapping->handle) != 0)
            return false;
        m_mapping->handle = nullptr;
    }
    m_mapping.reset();
    return true;
}

bool DLClass::IsLoaded()
{
    return m_mapping != nullptr;
}

std::string DLClass::GetLastErrorStr()
{
    const char *const text = dlerror(); // NOLINT(concurrency-mt-unsafe): its state is per thread
    return text == nullptr ? std::string() : std::string(text);
}

void DLClass::ClearAllSymbols() {}
