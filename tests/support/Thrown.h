#pragma once

// The error a call throws, for tests that check its number and text. A call that throws none
// fails the test (and gives an error numbered 0).

#include "util/Error.h"

#include <gtest/gtest.h>

namespace quorel::test {

template <typename Call> Error Thrown(Call&& call) {
    try {
        call();
    } catch (const Error& error) {
        return error;
    }
    ADD_FAILURE() << "no error was thrown";
    return Error(0, "", "");
}

} // namespace quorel::test
