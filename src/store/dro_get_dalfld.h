// dro_get_dalfld.h - the router's identity, read from the store. Any thread: each getter opens its own short session.
#pragma once

#include <cstddef>

#include "dro_text.h"

namespace dro {

// Sizes of the identity's texts, including the NUL.
inline constexpr std::size_t bufsize = 64;  // claim code
inline constexpr std::size_t FSNsize = 16;
inline constexpr std::size_t DeviceModelsize = 64;
inline constexpr std::size_t DeviceNamesize = 64;
inline constexpr std::size_t DroBaseURLsize = 128;
inline constexpr std::size_t FwRevisionsize = 64;
inline constexpr std::size_t JorvIDsize = 48;
inline constexpr std::size_t DefaultMACsize = 32;

struct Identity {
    FixedText<DeviceModelsize> DeviceModel;
    FixedText<DeviceNamesize> DeviceName;
    FixedText<FwRevisionsize> FwRevision;
    FixedText<FSNsize> FSN;  // serial number
    FixedText<JorvIDsize> JorvID;
    FixedText<DefaultMACsize> DefaultMAC;
    FixedText<bufsize> claimCode;
    FixedText<DroBaseURLsize> DroBaseURL;
};

// Returns a copy of the process's identity record as last read; registration may read it again.
Identity tv();

// Reads the identity from the store into the record. Returns 0 when it is complete, 1 when the serial number, connector
// id, name, model or firmware revision is empty or the MAC is all zero. After a failed read, the field contains what
// the store library left in the buffer.
int get_hab_info();

// Single reads into a buffer of `length` bytes, including the NUL. Each returns the store's status.
int Jorv_get_JorvID(char* buffer, std::size_t length);
int Jorv_get_claimcode(char* buffer, std::size_t length);
int get_DeviceModel(char* buffer, std::size_t length);
int get_DeviceName(char* buffer, std::size_t length);
int get_FSN(char* buffer, std::size_t length);
int get_FwRevision(char* buffer, std::size_t length);
// Reads Drocfg.DroBaseURL; DroCfg is a different table.
int get_DroCfg(char* buffer, std::size_t length);

// Writes the router's MAC as upper-case "AA:BB:CC:DD:EE:FF" into a buffer of at least 32 bytes. All zeros when the read
// fails.
int get_DefaultMAC(char* buffer);

}  // namespace dro
