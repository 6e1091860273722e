/*
 * stripe_card.c - a small host: reads tracks 2 and 3 of a magnetic card, or writes them.
 *
 *     stripe_card PORT                    reads
 *     stripe_card PORT TRACK2 TRACK3      writes
 *
 * Exit code 0: done. Otherwise the library's message is shown, which it keeps in GBK, and the exit code is 1.
 */
#include <iconv.h>
#include <qvreader/qvreader.h>
#include <stdio.h>
#include <string.h>

enum {
    nSpeed = 9600,
    nFormatIso = 0,
    nCardSeconds = 20, /* how long to wait for the card */
    nTrackSize = 513,
    nMessageSize = 128
};

/* The message of a result, in UTF-8. */
static void showMessage(int32_t nCode)
{
    char gbk[nMessageSize + 1] = {0}; /* no NUL comes with a message: the buffer has to be zeroed */
    char utf8[2 * nMessageSize] = {0};
    char *pIn = gbk, *pOut = utf8;
    size_t nIn, nOut = sizeof utf8 - 1;
    iconv_t converter = iconv_open("UTF-8", "GBK");
    TY_MsgGetErrMessage(nCode, gbk);
    nIn = strlen(gbk);
    if (converter != (iconv_t)-1) {
        iconv(converter, &pIn, &nIn, &pOut, &nOut);
        iconv_close(converter);
    }
    fprintf(stderr, "%d %s\n", nCode, utf8);
}

int main(int argc, char **argv)
{
    int32_t nRet;
    if (argc != 2 && argc != 4) {
        fprintf(stderr, "usage: stripe_card PORT [TRACK2 TRACK3]\n");
        return 2;
    }
    printf("swipe the card\n");
    fflush(stdout);
    if (argc == 4) {
        /* The texts may be shortened in place, so they have to be the host's own and writable. */
        nRet = Linux_QV_WriteMsgCard(argv[1], nSpeed, nFormatIso, nCardSeconds, NULL, argv[2], argv[3]);
        if (nRet == 0)
            printf("written\n");
    } else {
        char track2[nTrackSize], track3[nTrackSize];
        nRet = Linux_QV_ReadMsgCard(argv[1], nSpeed, nFormatIso, nCardSeconds, NULL, 0, track2, sizeof track2, track3,
                                    sizeof track3);
        if (nRet == 0)
            printf("track 2  %s\ntrack 3  %s\n", track2, track3);
    }
    if (nRet == 0)
        return 0;
    showMessage(nRet);
    return 1;
}
