#ifndef PELCLOUD_PLUGIN_UPSCLIDL_H
#define PELCLOUD_PLUGIN_UPSCLIDL_H

#include "model/suiterecords.h"
#include "plugin/dlclass.h"

/** An entry that is looked up and kept, but never called from here. */
using UnusedEntry = void (*)();

using CliStartEntry = void *(*)();
using CliStopEntry = void (*)(void *handle);
using GetServerCountEntry = unsigned long (*)(void *handle);
using UPSSrvGetStateEntry = int (*)(void *handle, unsigned long index, nb_capabilities *,
                                    nb_variaveis *, nb_estado_flags *, nb_falha_flags *,
                                    long *cause, unsigned long *counter, char *fullDischarge);
using UPSSrvGetVersionInfoEntry = int (*)(void *handle, unsigned long index,
                                          pelorin_version_info *);

// Every entry of upscli.so, by the name under which it is looked up.
#define PELCLOUD_UPSCLI_ENTRIES(ENTRY) \
    ENTRY(CliStartEntry, CliStart) \
    ENTRY(UnusedEntry, CliStart1) \
    ENTRY(UnusedEntry, CliStart2) \
    ENTRY(CliStopEntry, CliStop) \
    ENTRY(GetServerCountEntry, GetServerCount) \
    ENTRY(UnusedEntry, GetServerInfoByIndex) \
    ENTRY(UnusedEntry, GetServerInfoByIndex2) \
    ENTRY(UnusedEntry, GetServerInfoByIndex3) \
    ENTRY(UnusedEntry, GetServerIndexById) \
    ENTRY(UnusedEntry, UPSSrvRestart) \
    ENTRY(UPSSrvGetStateEntry, UPSSrvGetState) \
    ENTRY(UnusedEntry, UPSSrvGetSetFlags) \
    ENTRY(UnusedEntry, UPSSrvGetResetFlags) \
    ENTRY(UnusedEntry, UPSSrvUpdateFlags) \
    ENTRY(UnusedEntry, UPSSrvSetUpsVar) \
    ENTRY(UnusedEntry, UPSSrvSetLimitTimerManual) \
    ENTRY(UnusedEntry, UPSSrvCancelLimitTimer) \
    ENTRY(UnusedEntry, UPSSrvClearLog) \
    ENTRY(UnusedEntry, UPSSrvGetVersion) \
    ENTRY(UPSSrvGetVersionInfoEntry, UPSSrvGetVersionInfo) \
    ENTRY(UnusedEntry, UPSSrvParseStateFlags) \
    ENTRY(UnusedEntry, UPSSrvDischargeBattery) \
    ENTRY(UnusedEntry, UPSSrvChangeAutonomy) \
    ENTRY(UnusedEntry, FileDownload) \
    ENTRY(UnusedEntry, FileUpload) \
    ENTRY(UnusedEntry, FileCancelDownload) \
    ENTRY(UnusedEntry, FileCancelUpload) \
    ENTRY(UnusedEntry, FileDownloadProgress) \
    ENTRY(UnusedEntry, FileUploadProgress) \
    ENTRY(UnusedEntry, ParseUPSState)

/**
 * The suite's client library with its entries, each null until a library is loaded and when the
 * library lacks it. A missing entry does not make loading fail.
 */
class UpsCliDL : public DLClass
{
public:
    UpsCliDL() = default;
    UpsCliDL(const UpsCliDL &other) = default;
    UpsCliDL &operator=(const UpsCliDL &other) = default;
    /** Shares the library that `other` holds, with its entries. */
    UpsCliDL &operator=(const DLClass &other);

    bool GetAllSymbols() override;
    ~UpsCliDL() override;
    void ClearAllSymbols() override;

#define PELCLOUD_UPSCLI_MEMBER(Type, Name) Type Name = nullptr;
    PELCLOUD_UPSCLI_ENTRIES(PELCLOUD_UPSCLI_MEMBER)
#undef PELCLOUD_UPSCLI_MEMBER
};

#endif
