// The event that a record reports. Only this table knows the record functions and the beginnings of messages that the
// reader depends on: look here if a message of vdRescan_plus changes.
#pragma once

#include <span>
#include <string_view>

#include "log_record.h"

// In the order in which a run records them.
enum class Event {
    Other,
    Started,
    NotRoot,
    LockFailed,  // only AnotherCopy can follow
    AnotherCopy,
    ListNotLoaded,  // the last event before options are read
    WrongOptions,
    TargetFiled,  // a host or controller to be rescanned
    NotListed,    // a host, a controller, or all of them
    DisksNotListed,
    SessionFiled,
    DiskFiled,
    ProductUnknown,
    NotSupported,
    LeftOut,
    LunsAnswered,
    LunsListed,  // the LUNs of that answer
    LunsFailed,
    InquiryFailed,
    NotConnected,
    Removed,
    Changed,
    Asked,
    DeletionsBegan,
    Deletion,
    RescansBegan,
    HostRescan,
    HostRescanned,
    HostNotRescanned,
    ControllerRescan,
    ControllerRescanned,
    ControllerNotRescanned,
    Ended,
};

struct EventRow {
    std::string_view function;   // function that writes the record
    std::string_view beginning;  // of the message; empty: any other message of the function
    Event event;
    bool isError = false;  // only records at the level ERROR
};

// The table; the first row that fits a record counts.
[[nodiscard]] std::span<const EventRow> READER_EventRows();

[[nodiscard]] Event READER_EventOf(const LogRecord &record);
