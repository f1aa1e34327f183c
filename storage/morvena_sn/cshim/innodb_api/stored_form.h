// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file innodb_api/stored_form.h
  How a column's values are stored in InnoDB's records. Values of most forms are
  copied into a row of the server's format in a few instructions.
*/

#ifndef MORVENA_SN_INNODB_API_STORED_FORM_H
#define MORVENA_SN_INNODB_API_STORED_FORM_H

#include <cstring>

#include "host/innodb.h"

enum class Stored_form : uint8_t {
  HOSTS,     // converted by InnoDB
  SIGNED,    // most significant byte first, the sign inverted
  UNSIGNED,  // most significant byte first
  PLAIN,     // the same bytes as in a row
  VARCHAR,   // without the length that it has in a row; may be off the page
};

inline Stored_form stored_form(const mysql_row_templ_t *templ) {
  switch (templ->type) {
    case DATA_INT:
      return templ->is_unsigned ? Stored_form::UNSIGNED : Stored_form::SIGNED;
    case DATA_FLOAT:
    case DATA_DOUBLE:
    case DATA_FIXBINARY:
      return Stored_form::PLAIN;
    case DATA_VARCHAR:
    case DATA_VARMYSQL:
    case DATA_BINARY:
      return templ->mysql_type == DATA_MYSQL_TRUE_VARCHAR ? Stored_form::VARCHAR
                                                          : Stored_form::HOSTS;
    default:
      return Stored_form::HOSTS;
  }
}

namespace stored_form_detail {

inline void store_reversed(byte *to, const byte *from, ulint bytes) {
  switch (bytes) {
    case 4: {
      uint32_t value;
      memcpy(&value, from, 4);
      value = __builtin_bswap32(value);
      memcpy(to, &value, 4);
      return;
    }
    case 8: {
      uint64_t value;
      memcpy(&value, from, 8);
      value = __builtin_bswap64(value);
      memcpy(to, &value, 8);
      return;
    }
    default:
      for (ulint i = 0; i < bytes; ++i) to[bytes - 1 - i] = from[i];
  }
}

}  // namespace stored_form_detail

/** Store a value into a row. The value is not NULL, all of its bytes are at
    from, and its form is not HOSTS.
    @param length_bytes  the bytes of a VARCHAR's length in a row */
inline void store_value(Stored_form form, byte *to, const byte *from,
                        ulint bytes, ulint length_bytes) {
  switch (form) {
    case Stored_form::SIGNED:
      stored_form_detail::store_reversed(to, from, bytes);
      to[bytes - 1] ^= 128;
      return;
    case Stored_form::UNSIGNED:
      stored_form_detail::store_reversed(to, from, bytes);
      return;
    case Stored_form::VARCHAR:
      to[0] = static_cast<byte>(bytes);
      if (length_bytes == 2) to[1] = static_cast<byte>(bytes >> 8);
      to += length_bytes;
      [[fallthrough]];
    default:
      memcpy(to, from, bytes);
  }
}

#endif  // MORVENA_SN_INNODB_API_STORED_FORM_H
