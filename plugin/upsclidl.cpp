#include "plugin/upsclidl.h"

UpsCliDL &UpsCliDL::operator=(const DLClass &other)
{
    DLClass::operator=(other);
    if (IsLoaded())
        GetAllSymbols();
    return *this;
}

UpsCliDL::~UpsCliDL() = default;

bool UpsCliDL::GetAllSymbols()
{
#define PELCLOUD_UPSCLI_RESOLVE(Type, Name) Name = reinterpret_cast<Type>(GetSymbol(#Name));
    PELCLOUD_UPSCLI_ENTRIES(PELCLOUD_UPSCLI_RESOLVE)
#undef PELCLOUD_UPSCLI_RESOLVE
    return true;
}

void UpsCliDL::ClearAllSymbols()
{
#define PELCLOUD_UPSCLI_CLEAR(Type, Name) Name = nullptr;
    PELCLOUD_UPSCLI_ENTRIES(PELCLOUD_UPSCLI_CLEAR)
#undef PELCLOUD_UPSCLI_CLEAR
}
