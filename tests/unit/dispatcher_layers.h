// dispatcher_layers.h - the two layers of the dispatcher, so that a test holds both.
#pragma once

#include "qvreader/transport.h"

namespace qvtest {

// Both layers of the dispatcher have the same functions.
struct Layer {
    const char *pszName;
    int32_t (*open)(TransPortParam *) noexcept;
    int32_t (*write)(const uint8_t *, uint32_t) noexcept;
    int32_t (*read)(uint8_t *, uint32_t) noexcept;
    int32_t (*close)() noexcept;
    int32_t (*cancel)() noexcept;
    int32_t (*endCondition)(EndConditionFn) noexcept;
    int32_t (*timeOut)(uint32_t) noexcept;
    int32_t (*termParam)(TransPortParam *) noexcept;
    int32_t (*clearZero)(uint32_t) noexcept;
};

inline const Layer s_outer = {"outer",
                              COMM_Dev_OpenTransPort,
                              COMM_Dev_WriteDataToTransPort,
                              COMM_Dev_ReadDataFromTransPort,
                              COMM_Dev_CloseTransPort,
                              COMM_Dev_CancelRead,
                              COMM_Dev_ChangeEndCondition,
                              COMM_Dev_ChangeReadTimeOut,
                              COMM_Dev_ChangeTermParam,
                              COMM_Dev_SetHidClearZero};
inline const Layer s_inner = {"inner",
                              COMM_Dev_Linux_OpenTransPort,
                              COMM_Dev_Linux_WriteDataToTransPort,
                              COMM_Dev_Linux_ReadDataFromTransPort,
                              COMM_Dev_Linux_CloseTransPort,
                              COMM_Dev_Linux_CancelLinuxRead,
                              COMM_Dev_Linux_ChangeEndCondition,
                              COMM_Dev_Linux_ChangeReadTime,
                              COMM_Dev_Linux_ChangeTermParam,
                              COMM_Dev_Linux_SetLinuxHidClearZero};

} // namespace qvtest
