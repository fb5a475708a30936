#pragma once

#include <string>

// The controller's commands, one free function each. All run on the main thread, act on the process-wide objects and write
// their replies to `uart`; a failure is answered with silence. A function that throws (std::exception) is named; the
// dispatcher logs it. Text arguments are the bytes behind the command word as received, line end included.

// Stream server and player (player_commands.cpp)

/// Builds the text of the current server and discards it: the command is silent on purpose.
void Uart_GetServer();
/// Stores protocol, address, port and the T2-MI pair of "UDP 239.0.0.1 1234\n" or "RTP_T2MI 239.0.0.2 5000 4096 0\n".
/// Throws std::invalid_argument or std::out_of_range when a T2-MI field is no number.
void Uart_SetServer(std::string arg);
/// Replaces the current source by one of the server's stream and scans it. Throws when address or port is no number.
void Uart_Scancur();
/// Plays the program whose decimal number begins `arg`, from the current source. Throws as Uart_Scancur.
void Uart_Play(std::string arg);
/// Replies "running" or "stopped"; nothing without a source.
void Uart_GstreamerStatus();
/// Replies "<SDT>" and the SDT sections; nothing before the first one.
void Uart_StreamInfo();
/// Replies the NIT sections; nothing before the first one.
void Uart_GetNIT();
/// Replies the PMT section of the program last played; nothing when there is none.
void Uart_GetPMT();
/// Sends the current source's stream to the FPGA. Throws as Uart_Scancur.
void Uart_SendTS();
/// Replies the last T2-MI frame in writes of at most 4096 bytes.
void Uart_GetT2MIFrame();

// Network and measurement (network_commands.cpp)

void Uart_GetInterface();
void Uart_SetInterface(std::string argument);
/// Throws std::out_of_range when ethtool names no speed.
void Uart_IpStatus();
void Uart_GetIAT();
void Uart_GetEthernetMeasurement();

// EBS frames (ebs_commands.cpp)

void Uart_ScancurEBS();
void Uart_PlayEBS(std::string arg);
void Uart_ServiceNameEBS(std::string arg);
void Uart_StatusEBS();
void Uart_InfoEBS();
void Uart_AudioLevelEBS();
void Uart_VersionEBS();

// Recorder (pvr_commands.cpp)

void Uart_PVR_Record();
void Uart_PVR_Scan();
void Uart_PVR_Stop();
void Uart_PVR_Reclist();
void Uart_PVR_Export();

// Maintenance (maintenance_commands.cpp)

/// Runs the received line, which begins with "ping", and replies its standard output. Blocks until it ends.
void Uart_Ping(std::string line);
/// Replies "SV: mx8 ... FPGA: ...\n"; returns the result of the write.
int Uart_Version();
/// Runs a shell command with the Wayland environment set, here and for all later children; returns its wait status.
int Uart_ConsoleCommand(std::string command);

// Software update (update_command.cpp)

/// Receives a package image and its CRC from the line, installs it and replies "update ok\n". Networking stays off.
void Uart_Update(std::string argument);
