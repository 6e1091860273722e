#include "card_message.h"

#include "charset.h"
#include "hex.h"
#include "texts.h"

#include <qvreader/icapp.h>

namespace qvtool {

std::string cardMessage(uint32_t nStatus)
{
    std::string sText = utf8OfGbk(ICC_CardCmdShowErrMsg(nStatus)).value_or("?");
    sText.resize(sText.find_last_not_of(' ') + 1); // some of the texts end with a blank
    return sText;
}

std::string statusLine(uint32_t nStatus)
{
    const std::string sMeaning = cardStatusText(nStatus);
    return hexWord(nStatus) + (sMeaning.empty() ? "" : "  (" + sMeaning + ")") + "  \"" +
           forTerminal(cardMessage(nStatus)) + "\"";
}

} // namespace qvtool
