#include "changejudge.h"

ChangeJudgement ChangeJudge::Judge(const ChangePosition& change) {
    ChangeJudgement judgement;
    if (m_knows && change.agentStart != m_last.agentStart) {
        // Nothing is counted as lost: the numbers of two runs have nothing to do with
        // each other, and the alarms are to be listed anew in any case.
        judgement.restarted = true;
    } else if (m_knows && change.number <= m_last.number) {
        // In the list already, or repeated by a push that was believed to have failed.
        // It must not set back what is remembered.
        judgement.isNews = false;
        return judgement;
    } else if (m_knows) {
        judgement.lost = change.number - m_last.number - 1;
    }
    m_knows = true;
    m_last = change;
    return judgement;
}
