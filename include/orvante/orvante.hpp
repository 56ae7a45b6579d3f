#pragma once
// Everything public of orvante.

#include <orvante/lzss.h>
#include <orvante/ble_globals.hpp>
#include <orvante/bytes.hpp>
#include <orvante/commands.hpp>
#include <orvante/delivery.hpp>
#include <orvante/discovery.hpp>
#include <orvante/dither.hpp>
#include <orvante/encoding.hpp>
#include <orvante/error.hpp>
#include <orvante/exception.hpp>
#include <orvante/field.hpp>
#include <orvante/image.hpp>
#include <orvante/label.hpp>
#include <orvante/log.hpp>
#include <orvante/lzss.hpp>
#include <orvante/pdf.hpp>
#include <orvante/platform/platform.hpp>
#include <orvante/platform/serial_printers.hpp>
#include <orvante/printer.hpp>
#include <orvante/session.hpp>
#include <orvante/value.hpp>
#include <orvante/version.hpp>
