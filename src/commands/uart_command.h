#pragma once

#include <string>

// The controller's commands, one free function each. All run on the main thread, act on the process-wide
// objects and write their replies to `uart`; a failure is answered with silence. A function that throws
// (std::exception) is named; the dispatcher logs it. Text arguments are the bytes behind the command word as
// received, line end included.

// Stream server and player (player_commands.cpp)

/// Builds the text of the current server and discards it: the command is silent on purpose.
void Uart_GetServer();
/// Stores protocol, address, port and the T2-MI pair of "UDP 239.0.0.1 1234\n" or "RTP_T2MI 239.0.0.2 5000
/// 4096 0\n". Throws std::invalid_argument or std::out_of_range when a T2-MI field is no number.
void Uart_SetServer(std::string arg);
/// Replaces the current source by one of the server's stream and scans it. Throws when address or port is no
/// number.
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

/// Replies "192.168.1.20 255.255.255.0\n", address and mask of eth0; "not connected\n" without link.
void Uart_GetInterface();
/// Configures eth0 and ends the Ethernet measurement; silent. In this order: "ethtool ..." up to the next ";"
/// is run as it stands, without time limit; "vlan_id=42" sets the VLAN, its absence takes it away; "dhcp"
/// anywhere asks for a lease; without it the argument begins with "192.168.1.20 255.255.255.0", a static
/// address. Nothing is checked: a wrong argument is stored and fails in the system's own tools.
void Uart_SetInterface(std::string argument);
/// Replies what ifconfig prints of eth0 and then what ethtool prints of it from "Speed" on; the same goes to
/// the debug console. Throws std::out_of_range when ethtool names no speed.
void Uart_IpStatus();
/// Stops the player, sees to a capture of the server's stream and replies the inter-arrival times of its last
/// 1024 frames, oldest first, in microseconds, as "998;1002;"; a question soon after gets many of them again.
/// Not a byte when there are none yet, which is so for the question that starts the capture. "not
/// connected\n" without link. A capture that can not be started is not told: it has no times.
void Uart_GetIAT();
/// Stops the player, sees to a capture as Uart_GetIAT does and replies seven 32-bit numbers, raw,
/// little-endian: stream present, bit rate, delay factor in ms, continuity errors, bytes of a TS packet, TS
/// packets in a datagram, 10. All but the last are 0 before the first measurement. "not connected\n" without
/// link.
void Uart_GetEthernetMeasurement();

// EBS frames (ebs_commands.cpp). Replies have no terminator.

/// Ends measurement and current source and scans the FPGA's stream; silent.
void Uart_ScancurEBS();
/// Replies "*0C_d.SX" at once, which acknowledges the frame only, and plays the program of this position, two
/// hexadecimal digits: 00 and 01 both the first. From the current source, from the FPGA's stream when there
/// is none. No number counts as 00; a position that the stream does not have plays nothing.
void Uart_PlayEBS(std::string arg);
/// Replies "Service31" to "1F": a name made from the two hexadecimal digits. No number counts as 00.
void Uart_ServiceNameEBS(std::string arg);
/// Replies "*17_a.FL:02_NS:03$_DS:05", programs found and index last given to Uart_PlayEBS, hexadecimal; both
/// 00 without a source or before its SDT has come.
void Uart_StatusEBS();
/// Replies "*32_e.DI:...", codec, width and height of the picture and codec of the sound, each of four
/// hexadecimal digits; 0000 for what is not decoded (yet).
void Uart_InfoEBS();
/// Replies "*07_o.$" and leaves the level as it was set at the start.
void Uart_AudioLevelEBS();
/// Replies the line of Uart_Version.
void Uart_VersionEBS();

// Recorder (pvr_commands.cpp). There is one recording, record.ts on the removable card.

/// Records the current source's stream over the old recording until it is stopped, the FPGA's stream when
/// there is no source. Silent, also without a card.
void Uart_PVR_Record();
/// Ends measurement and current source and scans the recording as the source from now on; silent.
void Uart_PVR_Scan();
/// Ends measurement, playing and recording: there is no source afterwards. Silent.
void Uart_PVR_Stop();
/// Replies "reclist file:188 Bytes" without terminator, the length of the recording; 0 without one.
void Uart_PVR_Reclist();
/// Ends measurement and current source, replies "PVR_export_ok\n" before anything is sent, and writes the
/// recording to the FPGA. Blocks until all is written; gives up, logged only, when the recording or the
/// device can not be opened or read, and when the device takes nothing for 6 s.
void Uart_PVR_Export();

// Maintenance (maintenance_commands.cpp)

/// Runs the received line, which begins with "ping", and replies its standard output. Blocks until it ends.
void Uart_Ping(std::string line);
/// Replies "SV: mx8 ... FPGA: ...\n"; returns the result of the write.
int Uart_Version();
/// Runs a shell command with the Wayland environment set, here and for all later children; returns its wait
/// status.
int Uart_ConsoleCommand(std::string command);

// Software update (update_command.cpp)

/// Receives a package image and its CRC from the line, installs it and replies "update ok\n". Networking
/// stays off.
void Uart_Update(std::string argument);
