/// Marks every variable of the daemon that outlives a call. The marks mean nothing in the daemon that
/// a switch runs. Where LVT_GATHER_STATE is defined, as for tests and simulators, they gather what they
/// mark in a section of the program each: to start anew is to put the section's first octets back, and
/// many daemons live in one process by taking turns in it.
///
/// A mark is for objects that are made while compiling, without constructor or destructor.
#pragma once

#ifdef LVT_GATHER_STATE
/// What the daemon knows: records, tables, settings, what it asked of the chip.
#define LVT_STATE __attribute__((section("lvt_state")))
/// State in reserve, which nothing makes other than zero: those who take turns may leave it where it is.
#define LVT_STATE_RESERVED __attribute__((section("lvt_reserved")))
/// What belongs to the running process: threads, semaphores, descriptors, buffers.
#define LVT_PROCESS __attribute__((section("lvt_process")))

// The linker's names for the ends of the sections.
extern char __start_lvt_state[], __stop_lvt_state[];
extern char __start_lvt_reserved[], __stop_lvt_reserved[];
extern char __start_lvt_process[], __stop_lvt_process[];
#else
#define LVT_STATE
#define LVT_STATE_RESERVED
#define LVT_PROCESS
#endif
