// dro_get_dalfld.h - the router's identity, read from the store. Any thread: each getter opens a short session of its
// own.
#pragma once

#include <cstddef>

#include "dro_text.h"

namespace dro {

// Sizes of the identity's texts, with the NUL.
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

// The process's identity record `tv`, as it was when last read: a copy, since registration reads it anew.
Identity tv();

// Reads the identity from the store into the record. Returns 0 when it is complete; 1 when the serial number, connector
// id, name, model or firmware revision is empty or the MAC is all zero. A field whose read fails is as the store left
// it.
int get_hab_info();

// Single reads into a buffer of `length` bytes, NUL included. Each returns the store's status.
int Jorv_get_JorvID(char* buffer, std::size_t length);
int Jorv_get_claimcode(char* buffer, std::size_t length);
int get_DeviceModel(char* buffer, std::size_t length);
int get_DeviceName(char* buffer, std::size_t length);
int get_FSN(char* buffer, std::size_t length);
int get_FwRevision(char* buffer, std::size_t length);
// Drocfg.DroBaseURL; DroCfg is another table.
int get_DroCfg(char* buffer, std::size_t length);

// Writes the router's MAC as upper-case "AA:BB:CC:DD:EE:FF" into a buffer of at least 32 bytes, zeros when the read
// fails.
int get_DefaultMAC(char* buffer);

}  // namespace dro
