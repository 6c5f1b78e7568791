#ifndef PELCLOUD_PLUGIN_DLCLASS_H
#define PELCLOUD_PLUGIN_DLCLASS_H

#include <string>

/**
 * Owner of one dynamically loaded library. Copies take a reference of their own, so that code
 * stays mapped until the last of them lets go. Not safe for use by two threads at once.
 *
 * The order of the virtual operations is part of the contract with derived classes.
 */
class DLClass
{
public:
    DLClass() = default;
    DLClass(const DLClass &other);
    DLClass &operator=(const DLClass &other);

    /** The address of a symbol of the loaded library, or null. */
    virtual void *GetSymbol(const char *name);
    /** Called by Load() once the library is there; its result is Load()'s. Resolves nothing here. */
    virtual bool GetAllSymbols();
    /** Unloads. Calls no override of a derived class, which is gone by then. */
    virtual ~DLClass();
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

    [[nodiscard]] void *GetDLHandle() const { return m_handle; }

protected:
    /** Lets go of what is held and takes a reference to what another object holds. */
    void share(const DLClass &other);

private:
    void *m_handle = nullptr;
};

#endif
