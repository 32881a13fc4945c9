#ifndef IVRA_VIRTUAL_API_H
#define IVRA_VIRTUAL_API_H

// The platform's C interface, seen from inside: what it declares is exported.
#pragma GCC visibility push(default)
#include <ivra/flash.h>
#include <ivra/hw.h>
#include <ivra/hw_top.h>
#include <ivra/i2c.h>
#include <ivra/log.h>
#include <ivra/mac_address.h>
#include <ivra/uart.h>
#pragma GCC visibility pop

#endif
