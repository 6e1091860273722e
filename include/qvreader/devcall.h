/*
 * devcall.h - a reader's identity, asked for and answered in JSON.
 */
#ifndef QVREADER_DEVCALL_H
#define QVREADER_DEVCALL_H

#include "qvreader/icapp.h"

QV_BEGIN_DECLS

/* Opens the reader that the request names, asks for its device record and closes it again.
 *
 * requestJson: an object with string members (others count as absent; no value may be longer than 255 bytes, longer
 *   ones are cut). Names match in any case; the first that matches counts. A number is read up to its last digit;
 *   without one it is 0.
 *     "FunctionCode"     must begin with "0001"
 *     "RequestPort"      "0": USB; otherwise the port is /dev/COM and this text
 *     "RequestBaudRate"  bits per second
 *     "RequestTimeOut"   power-up time-out to set, seconds; while g_stCallBackFunc.nPowerUp is 0 it is not set. The
 *                        reader's answer is awaited for 3 seconds whatever it is
 *     "RequestIP"        ignored
 * reserved: not null; not read.
 * outJson: out, at least 512 bytes; UTF-8, with a NUL. outLen: out, its length in bytes.
 *
 * 0: outJson holds "ErrorCode" "0", "ErrorMessage", "DeviceBrand", "DllVersion", "DeviceVersion", "ProductionDate",
 *    "DeviceSN" and "DeviceModel"; or nothing could be written to the reader and both outputs are untouched: set
 *    *outLen to 0 before. Texts of the reader are not escaped.
 * -1: outJson holds an error object because the reader did not answer; or it is untouched, because the request is
 *    null, no JSON or for another function, or because the port could not be opened.
 * -100: a null argument, or a negative port or time-out.
 *
 * Calls initDriver first, whatever the result: the log file changes, the umask becomes 0, old and foreign files in log/
 * are deleted. Changes the power-up time-out, the raise flag (to 0), the end condition, and what Dev_Rdz_Ic_OpenPort
 * and Dev_Rdz_Ic_ClosePort change. */
QV_API int32_t DEV_CommCall(const char *requestJson, const void *reserved, char *outJson, uint32_t *outLen) QV_NOEXCEPT;

/* Copies a string member of a JSON object, with a NUL. out: out, room for the whole string; it is not bounded here.
 * 0; -1 the member is no string; -2 no JSON, no such member, or null. */
QV_API int32_t func_GetStringFromJson(const char *json, const char *key, char *out) QV_NOEXCEPT;

/* End conditions: 0 when the last byte is 0x04 / 0x03, else -1 (also for no bytes). */
QV_API int32_t VEREndCondition(const uint8_t *buf, int32_t len) QV_NOEXCEPT;
QV_API int32_t DefaultEndCondition(const uint8_t *buf, int32_t len) QV_NOEXCEPT;

/* Appends the line "label:        value" and an empty line to text. length: bytes in text so far. text: in/out, room
 * for what is appended and a NUL. The new length; -2 for null or a negative length. */
QV_API int32_t DataFormat(char *text, int32_t length, const char *label, const char *value) QV_NOEXCEPT;

QV_END_DECLS

#endif
