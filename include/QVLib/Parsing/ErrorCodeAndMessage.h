// ErrorCodeAndMessage - the last failure of an object that works in the background, kept until somebody asks.
//
// What the kinds are, and what a code means in each, is its owner's business; kind 0 is "no failure".
#pragma once

#include <QVPlatform/String.h>

struct ErrorCodeAndMessage {
    unsigned int m_Kind = 0;
    unsigned int m_Code = 0;
    qvstring m_Message;

    void Reset() {
        m_Kind = 0;
        m_Code = 0;
        m_Message.clear();
    }
};
