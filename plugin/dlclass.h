#ifndef PELCLOUD_PLUGIN_DLCLASS_H
#define PELCLOUD_PLUGIN_DLCLASS_H

#include <memory>
#include <string>

/**
 * Owner of one dynamically loaded library. Copies share it; the last one unloads. Not safe for use
 * by two threads at once, nor are copies.
 *
 * The order of the virtual operations is part of the contract with derived classes.
 */
class DLClass
{
public:
    DLClass() = default;
    DLClass(const DLClass &other) = default;
    /** Unloads what is loaded here, then shares. */
    DLClass &operator=(const DLClass &other);

    /** The address of a symbol of the loaded library, or null. */
    virtual void *GetSymbol(const char *name);
    /** Called by Load() once the library is there; its result is Load()'s. Resolves nothing here. */
    virtual bool GetAllSymbols();
    /** Unloads. Calls no override of a derived class, which is gone by then. */
    virtual ~DLClass() = default;
    /** Loads a library, after unloading another; false when there is no name or no such library. */
    virtual bool Load(const std::string &name);
    virtual bool Load(const char *name);
    /** True when nothing is loaded afterwards. */
    virtual bool Unload();
    virtual bool IsLoaded();
    /** The dynamic linker's text on this thread's last failure; empty when there was none. */
    virtual std::string GetLastErrorStr();
    /** Called by Unload() while the library is still there. */
    virtual void ClearAllSymbols();

    [[nodiscard]] void *GetDLHandle() const { return m_mapping ? m_mapping->handle : nullptr; }

private:
    /** The result of dlopen(), closed by the last owner. */
    struct Mapping
    {
        Mapping() = default;
        Mapping(const Mapping &) = delete;
        Mapping &operator=(const Mapping &) = delete;
        ~Mapping();

        void *handle = nullptr;
    };

    std::shared_ptr<Mapping> m_mapping;
};

#endif
