// The host's functions that are told what happens; all null until the host sets some.
#pragma once

#include "include/h323nat.h"

extern H323Observer observer;

// Copies what the host gives; null: nobody is told any more.
void setObserver(const H323Observer* given);

// Numbers of calls, from 1 on, for both scopes.
uint64_t nextCallNumber();

// Tells the host, if it wants to hear of it:
//     tell(observer.callBegan, call);
template <typename Event>
void tell(void(H323NAT_CALL* function)(void* context, const Event* event), const Event& event) {
    if (function != nullptr) {
        function(observer.context, &event);
    }
}
