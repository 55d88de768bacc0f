// TTError: an error of the trading back end as it travels with a record (an id and a message).
// An id of 0 means no error. A plain value; copy freely.
#pragma once

#include <string>

namespace ttservice {

struct TTError {
    int m_nErrorID = 0;
    std::string m_strErrorMsg;

    TTError() = default;
    TTError(int id, std::string msg) : m_nErrorID(id), m_strErrorMsg(std::move(msg)) {}
    bool isError() const { return m_nErrorID != 0; }
};

}  // namespace ttservice
