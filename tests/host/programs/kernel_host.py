"""kernel_host.py - a Python host with a kernel: kernel_host.py LIBRARY KERNEL PORT ORDER. ctypes loads both with local
scope; ORDER is library-first or kernel-first."""
import ctypes
import sys


def check(holds, what):
    if not holds:
        sys.exit("does not hold: " + what)


def select(library, port):
    return library.QV_APP_SelectAid(port, b"", 9600, b"1", b"A000000333010101")


def load(path, kernel_path, order):
    if order == "kernel-first":
        kernel = ctypes.CDLL(kernel_path)
        return ctypes.CDLL(path), kernel
    library = ctypes.CDLL(path)
    check(library.QV_APP_SetEmvFunc(ord("0")) == -1, "there is no kernel yet")
    return library, ctypes.CDLL(kernel_path)


def main():
    path, kernel_path, port, order = sys.argv[1:]
    library, kernel = load(path, kernel_path, order)
    kernel.testKernelCalls.restype = ctypes.c_char_p

    check(library.QV_APP_SetEmvFunc(ord("0")) == 0, "the kernel takes the table")
    table = (ctypes.c_void_p * 10).in_dll(library, "stICOp")
    check(all(table[1:9]) and not table[0] and not table[9], "the kernel stored the table in the library's stICOp")

    check(select(library, port.encode()) == 0, "the selection works")
    record = (ctypes.c_uint8 * 3168).in_dll(library, "g_stProc")
    check(record[0] == 2 and record[8] == ord("1"), "the record says what is selected")

    kernel.testKernelStartAnswers(-7)
    check(select(library, port.encode()) == -9007, "a failure is converted")
    check(select(library, b"/dev/no-such-port") == -9051, "a port that is not there")
    calls = kernel.testKernelCalls().decode().split()
    expected = ("Emv_SetFunP(0) "
                "TY_DealAidList(A000000333010101, 16) Emv_QV_Start(record, 2) TY_ConvertErr(0) "
                "TY_DealAidList(A000000333010101, 16) Emv_QV_Start(record, 2) TY_ConvertErr(-7) "
                "TY_ConvertErr(-51)").split()
    check(calls == expected, "the kernel was called so: " + " ".join(calls))
    print("done")


main()
