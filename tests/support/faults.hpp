// faults.hpp: system calls that fail when a test says so.
//
// Programs that link tq4_faults make the calls that faults.cpp lists through it, and a fault is armed for one of them:
// its n-th call from then on fails, or moves only a part of its bytes. The linker puts the seam between the archive of
// the library and the system (--wrap), so the library's sources know nothing of it, and the shared object has none.
//
// A process counts the calls of all its threads. A child goes on with the count of its parent. A whole program is
// given its fault by the environment: TQ4_FAULT="CALL NTH ERROR MANNER FILE", where FILE is made when the fault
// happens; with "list" it prints the possible faults, "CALL ERROR MANNER" a line, and ends.
#pragma once

#include <string>
#include <vector>

enum class Fault_manner {
    once,         // the n-th call fails
    from_then_on, // it fails, and so does every one after it
    cut,          // it moves half of its bytes
    cut_then_fail // it moves half of its bytes, and every one after it fails: a disk that has become full
};

struct Fault {
    const char *call; // by name
    int error;
    Fault_manner manner;
};

// The faults that every listed call may have: each of its errors once, the first one for good, and cut transfers.
std::vector<Fault> possible_faults();
// "call error manner".
std::string name_of(const Fault &fault);

// Armed while it lives. One at a time.
class Armed_fault {
public:
    Armed_fault(const Fault &fault, unsigned long nth);
    ~Armed_fault();
    Armed_fault(const Armed_fault &) = delete;
    Armed_fault &operator=(const Armed_fault &) = delete;
    bool happened() const;
};
