// Port role transitions: the handshake by which a port takes up its role.
#include "engine_table.h"

namespace {

/// Forward delay and twice the hello time of the bench's bridge.
constexpr uint8_t FD = 15;
constexpr uint8_t HT2 = 4;

// ---- moves ------------------------------------------------------------------------------

/// Roles are selected and in force.
void settled(port_t *p, lvt_rstp_port_role_t role = ROLE_DISABLED)
{
    p->selected = 1;
    p->role = p->selectedRole = role;
}

/// A blocked port with nothing left to do.
void blocked(port_t *p, lvt_rstp_port_role_t role = ROLE_ALTERNATE)
{
    settled(p, role);
    p->fdWhile = FD;
    p->synced = 1;
}

/// A root port with nothing left to do.
void root(port_t *p)
{
    settled(p, ROLE_ROOT);
    p->learn = p->learning = p->forward = p->forwarding = p->synced = 1;
    p->rrWhile = FD;
}

/// A root port that does not learn yet and has time to wait for.
void young_root(port_t *p)
{
    settled(p, ROLE_ROOT);
    p->synced = p->reRoot = 1;
    p->fdWhile = p->rrWhile = FD;
    neighbour(p)->rrWhile = 1;
}

/// A designated port with nothing left to do.
void designated(port_t *p)
{
    settled(p, ROLE_DESIGNATED);
    p->learn = p->learning = p->forward = p->forwarding = p->synced = 1;
}

/// A designated port that has proposed and does not learn yet.
void young_designated(port_t *p)
{
    settled(p, ROLE_DESIGNATED);
    p->proposing = p->synced = 1;
    p->fdWhile = FD;
}

void new_role(port_t *p, lvt_rstp_port_role_t role)
{
    p->selected = 1;
    p->role = role == ROLE_DISABLED ? ROLE_ROOT : ROLE_DISABLED;
    p->selectedRole = role;
}

const move_row_t roletrns_move_rows[] = {
    {"begin", STP_BEGIN, nothing, ROLETRNS_INIT_PORT},
    {"begin comes before a new role", STP_BEGIN, [](port_t *p) { new_role(p, ROLE_ROOT); }, ROLETRNS_INIT_PORT},

    // A new role is taken up at once, from any state.
    {"role disabled", ROLETRNS_ROOT_PORT, [](port_t *p) { new_role(p, ROLE_DISABLED); }, ROLETRNS_BLOCK_PORT},
    {"role alternate", ROLETRNS_DESIGNATED_PORT, [](port_t *p) { new_role(p, ROLE_ALTERNATE); }, ROLETRNS_BLOCK_PORT},
    {"role backup", ROLETRNS_BLOCKED_PORT, [](port_t *p) { new_role(p, ROLE_BACKUP); }, ROLETRNS_BLOCK_PORT},
    {"role root", ROLETRNS_BLOCKED_PORT, [](port_t *p) { new_role(p, ROLE_ROOT); }, ROLETRNS_ROOT_PORT},
    {"role designated", ROLETRNS_BLOCKED_PORT, [](port_t *p) { new_role(p, ROLE_DESIGNATED); },
     ROLETRNS_DESIGNATED_PORT},
    {"a new role comes before init port goes on", ROLETRNS_INIT_PORT, [](port_t *p) { new_role(p, ROLE_ROOT); },
     ROLETRNS_ROOT_PORT},
    {"a new role comes before a step goes on", ROLETRNS_DESIGNATED_LEARN, [](port_t *p) { new_role(p, ROLE_BACKUP); },
     ROLETRNS_BLOCK_PORT},
    {"a new role waits until roles are selected", ROLETRNS_BLOCKED_PORT,
     [](port_t *p) { new_role(p, ROLE_ROOT), p->selected = 0; }, STAYS},
    {"a new role waits while information is updated", ROLETRNS_BLOCKED_PORT,
     [](port_t *p) { new_role(p, ROLE_ROOT), p->updtInfo = 1; }, STAYS},
    {"a step goes on while a new role waits", ROLETRNS_DESIGNATED_LEARN,
     [](port_t *p) { new_role(p, ROLE_ROOT), p->selected = 0; }, ROLETRNS_DESIGNATED_PORT},
    {"role non stp stops the machine", ROLETRNS_DESIGNATED_LEARN, [](port_t *p) { new_role(p, ROLE_NON_STP); }, STAYS},
    {"role non stp stops the machine in a resting state", ROLETRNS_BLOCKED_PORT,
     [](port_t *p) { new_role(p, ROLE_NON_STP); }, STAYS},
    {"role non stp in force stops nothing", ROLETRNS_DESIGNATED_LEARN, [](port_t *p) { settled(p, ROLE_NON_STP); },
     ROLETRNS_DESIGNATED_PORT},

    {"init port goes on", ROLETRNS_INIT_PORT, nothing, ROLETRNS_BLOCK_PORT},

    {"block port is done", ROLETRNS_BLOCK_PORT, [](port_t *p) { settled(p); }, ROLETRNS_BLOCKED_PORT},
    {"block port waits for learning to end", ROLETRNS_BLOCK_PORT, [](port_t *p) { settled(p), p->learning = 1; },
     STAYS},
    {"block port waits for forwarding to end", ROLETRNS_BLOCK_PORT, [](port_t *p) { settled(p), p->forwarding = 1; },
     STAYS},
    {"block port waits for roles", ROLETRNS_BLOCK_PORT, nothing, STAYS},
    {"block port waits for information", ROLETRNS_BLOCK_PORT, [](port_t *p) { settled(p), p->updtInfo = 1; }, STAYS},

    {"blocked port rests", ROLETRNS_BLOCKED_PORT, [](port_t *p) { blocked(p); }, STAYS},
    {"blocked port winds its timer up again", ROLETRNS_BLOCKED_PORT, [](port_t *p) { blocked(p), p->fdWhile = FD - 1; },
     ROLETRNS_BLOCKED_PORT},
    {"blocked port winds a longer timer down", ROLETRNS_BLOCKED_PORT,
     [](port_t *p) { blocked(p), p->fdWhile = FD + 1; }, ROLETRNS_BLOCKED_PORT},
    {"blocked port has to sync", ROLETRNS_BLOCKED_PORT, [](port_t *p) { blocked(p), p->sync = 1; },
     ROLETRNS_BLOCKED_PORT},
    {"blocked port has to re root", ROLETRNS_BLOCKED_PORT, [](port_t *p) { blocked(p), p->reRoot = 1; },
     ROLETRNS_BLOCKED_PORT},
    {"blocked port is not synced", ROLETRNS_BLOCKED_PORT, [](port_t *p) { blocked(p), p->synced = 0; },
     ROLETRNS_BLOCKED_PORT},
    {"blocked port waits for roles", ROLETRNS_BLOCKED_PORT, [](port_t *p) { blocked(p), p->sync = 1, p->selected = 0; },
     STAYS},
    {"blocked port waits for information", ROLETRNS_BLOCKED_PORT,
     [](port_t *p) { blocked(p), p->sync = p->updtInfo = 1; }, STAYS},
    {"backup port remembers that it was one", ROLETRNS_BLOCKED_PORT, [](port_t *p) { blocked(p, ROLE_BACKUP); },
     ROLETRNS_BACKUP_PORT},
    {"backup port winds its memory up again", ROLETRNS_BLOCKED_PORT,
     [](port_t *p) { blocked(p, ROLE_BACKUP), p->rbWhile = HT2 - 1; }, ROLETRNS_BACKUP_PORT},
    {"backup port that remembers rests", ROLETRNS_BLOCKED_PORT,
     [](port_t *p) { blocked(p, ROLE_BACKUP), p->rbWhile = HT2; }, STAYS},
    {"backup port syncs first", ROLETRNS_BLOCKED_PORT, [](port_t *p) { blocked(p, ROLE_BACKUP), p->sync = 1; },
     ROLETRNS_BLOCKED_PORT},
    {"backup port waits for roles", ROLETRNS_BLOCKED_PORT, [](port_t *p) { blocked(p, ROLE_BACKUP), p->selected = 0; },
     STAYS},
    {"backup memory of long hellos is kept to eight bits", ROLETRNS_BLOCKED_PORT,
     [](port_t *p) { p->owner->rootTimes.HelloTime = 130, blocked(p, ROLE_BACKUP), p->rbWhile = 4; }, STAYS},
    {"backup goes on", ROLETRNS_BACKUP_PORT, nothing, ROLETRNS_BLOCKED_PORT},

    {"root proposed goes on", ROLETRNS_ROOT_PROPOSED, nothing, ROLETRNS_ROOT_PORT},
    {"root agreed goes on", ROLETRNS_ROOT_AGREED, nothing, ROLETRNS_ROOT_PORT},
    {"reroot goes on", ROLETRNS_REROOT, nothing, ROLETRNS_ROOT_PORT},
    {"rerooted goes on", ROLETRNS_REROOTED, nothing, ROLETRNS_ROOT_PORT},
    {"root learn goes on", ROLETRNS_ROOT_LEARN, nothing, ROLETRNS_ROOT_PORT},
    {"root forward goes on", ROLETRNS_ROOT_FORWARD, nothing, ROLETRNS_ROOT_PORT},

    {"root port rests", ROLETRNS_ROOT_PORT, root, STAYS},
    {"root port with its time out rests when it forwards", ROLETRNS_ROOT_PORT,
     [](port_t *p) { root(p), p->fdWhile = 0; }, STAYS},
    {"root port asks for a re root", ROLETRNS_ROOT_PORT, [](port_t *p) { young_root(p), p->reRoot = 0; },
     ROLETRNS_REROOT},
    {"root port that forwards asks for none", ROLETRNS_ROOT_PORT, [](port_t *p) { root(p), p->reRoot = 0; }, STAYS},
    {"root port asks for a re root before it agrees", ROLETRNS_ROOT_PORT,
     [](port_t *p) {
         young_root(p), p->reRoot = 0, p->proposed = 1;
         neighbour(p)->synced = port_of(3)->synced = 1;
     },
     ROLETRNS_REROOT},
    {"root port waits for roles", ROLETRNS_ROOT_PORT, [](port_t *p) { young_root(p), p->reRoot = p->selected = 0; },
     STAYS},
    {"root port waits for information", ROLETRNS_ROOT_PORT,
     [](port_t *p) { young_root(p), p->reRoot = 0, p->updtInfo = 1; }, STAYS},
    {"root port agrees to a proposal when all are synced", ROLETRNS_ROOT_PORT,
     [](port_t *p) {
         root(p), p->proposed = 1;
         port_of(1)->synced = port_of(3)->synced = 1;
     },
     ROLETRNS_ROOT_AGREED},
    {"root port agrees although another port has not taken up its role", ROLETRNS_ROOT_PORT,
     [](port_t *p) {
         root(p), p->proposed = 1;
         port_of(1)->synced = port_of(3)->synced = 1;
         port_of(1)->role = ROLE_ALTERNATE, port_of(1)->selectedRole = ROLE_DESIGNATED, port_of(1)->selected = 0;
     },
     ROLETRNS_ROOT_AGREED},
    {"root port not synced agrees unasked when all are synced", ROLETRNS_ROOT_PORT,
     [](port_t *p) {
         root(p), p->synced = 0;
         port_of(1)->synced = port_of(3)->synced = 1;
     },
     ROLETRNS_ROOT_AGREED},
    {"root port does not mind ports outside the tree", ROLETRNS_ROOT_PORT,
     [](port_t *p) {
         root(p), p->proposed = 1;
         port_of(1)->synced = port_of(3)->synced = 1;
         bystander(p)->synced = 0;
     },
     ROLETRNS_ROOT_AGREED},
    {"root port alone on its bridge agrees", ROLETRNS_ROOT_PORT,
     [](port_t *p) {
         root(p), p->proposed = 1;
         port_of(1)->nonStp = port_of(3)->nonStp = 1;
     },
     ROLETRNS_ROOT_AGREED},
    {"root port not synced passes the proposal on", ROLETRNS_ROOT_PORT,
     [](port_t *p) { root(p), p->proposed = 1, p->synced = 0; }, ROLETRNS_ROOT_PROPOSED},
    {"root port synced waits with its agreement", ROLETRNS_ROOT_PORT,
     [](port_t *p) {
         root(p), p->proposed = 1;
         port_of(1)->synced = 1;
     },
     STAYS},
    {"root port not synced and not proposed waits", ROLETRNS_ROOT_PORT, [](port_t *p) { root(p), p->synced = 0; },
     STAYS},
    {"root port learns when its time is out", ROLETRNS_ROOT_PORT, [](port_t *p) { young_root(p), p->fdWhile = 0; },
     ROLETRNS_ROOT_LEARN},
    {"root port learns at once when no other port was root", ROLETRNS_ROOT_PORT,
     [](port_t *p) {
         young_root(p);
         neighbour(p)->rrWhile = 0;
     },
     ROLETRNS_ROOT_LEARN},
    {"root port waits while another was root", ROLETRNS_ROOT_PORT, young_root, STAYS},
    {"root port does not mind the past of ports outside the tree", ROLETRNS_ROOT_PORT,
     [](port_t *p) {
         young_root(p);
         neighbour(p)->rrWhile = 0;
         bystander(p)->rrWhile = 5;
     },
     ROLETRNS_ROOT_LEARN},
    {"root port waits while it was backup", ROLETRNS_ROOT_PORT,
     [](port_t *p) {
         young_root(p), p->rbWhile = 1;
         neighbour(p)->rrWhile = 0;
     },
     STAYS},
    {"root port of version 1 takes no shortcut", ROLETRNS_ROOT_PORT,
     [](port_t *p) {
         young_root(p);
         neighbour(p)->rrWhile = 0;
         world_now().force_version = 1;
     },
     STAYS},
    {"root port of version 0 takes no shortcut", ROLETRNS_ROOT_PORT,
     [](port_t *p) {
         young_root(p);
         neighbour(p)->rrWhile = 0;
         world_now().force_version = 0;
     },
     STAYS},
    {"root port of version 1 learns when its time is out", ROLETRNS_ROOT_PORT,
     [](port_t *p) {
         young_root(p), p->fdWhile = 0, p->rbWhile = 9;
         world_now().force_version = 1;
     },
     ROLETRNS_ROOT_LEARN},
    {"root port forwards when its time is out", ROLETRNS_ROOT_PORT,
     [](port_t *p) { young_root(p), p->learn = 1, p->fdWhile = 0; }, ROLETRNS_ROOT_FORWARD},
    {"root port forwards at once when no other port was root", ROLETRNS_ROOT_PORT,
     [](port_t *p) {
         young_root(p), p->learn = 1;
         neighbour(p)->rrWhile = 0;
     },
     ROLETRNS_ROOT_FORWARD},
    {"root port of version 1 waits again before it forwards", ROLETRNS_ROOT_PORT,
     [](port_t *p) {
         young_root(p), p->learn = 1;
         neighbour(p)->rrWhile = 0;
         world_now().force_version = 1;
     },
     STAYS},
    {"root port learns before it is re rooted", ROLETRNS_ROOT_PORT,
     [](port_t *p) { root(p), p->reRoot = 1, p->learn = 0; }, ROLETRNS_ROOT_LEARN},
    {"root port that forwards is re rooted", ROLETRNS_ROOT_PORT, [](port_t *p) { root(p), p->reRoot = 1; },
     ROLETRNS_REROOTED},
    {"root port with its time out that forwards is re rooted", ROLETRNS_ROOT_PORT,
     [](port_t *p) { root(p), p->reRoot = 1, p->fdWhile = 0; }, ROLETRNS_REROOTED},
    {"root port that does not forward is not re rooted", ROLETRNS_ROOT_PORT, young_root, STAYS},
    {"root port winds its memory up again", ROLETRNS_ROOT_PORT, [](port_t *p) { root(p), p->rrWhile = FD - 1; },
     ROLETRNS_ROOT_PORT},
    {"root port winds its memory up while it waits", ROLETRNS_ROOT_PORT,
     [](port_t *p) { young_root(p), p->rrWhile = 0; }, ROLETRNS_ROOT_PORT},

    {"designated propose goes on", ROLETRNS_DESIGNATED_PROPOSE, nothing, ROLETRNS_DESIGNATED_PORT},
    {"designated synced goes on", ROLETRNS_DESIGNATED_SYNCED, nothing, ROLETRNS_DESIGNATED_PORT},
    {"designated retired goes on", ROLETRNS_DESIGNATED_RETIRED, nothing, ROLETRNS_DESIGNATED_PORT},
    {"designated listen goes on", ROLETRNS_DESIGNATED_LISTEN, nothing, ROLETRNS_DESIGNATED_PORT},
    {"designated learn goes on", ROLETRNS_DESIGNATED_LEARN, nothing, ROLETRNS_DESIGNATED_PORT},
    {"designated forward goes on", ROLETRNS_DESIGNATED_FORWARD, nothing, ROLETRNS_DESIGNATED_PORT},

    {"designated port rests", ROLETRNS_DESIGNATED_PORT, designated, STAYS},
    {"designated port waits its time", ROLETRNS_DESIGNATED_PORT, young_designated, STAYS},
    {"designated port proposes", ROLETRNS_DESIGNATED_PORT, [](port_t *p) { young_designated(p), p->proposing = 0; },
     ROLETRNS_DESIGNATED_PROPOSE},
    {"designated port proposes before it retires", ROLETRNS_DESIGNATED_PORT,
     [](port_t *p) { young_designated(p), p->proposing = 0, p->reRoot = 1; }, ROLETRNS_DESIGNATED_PROPOSE},
    {"designated port that forwards does not propose", ROLETRNS_DESIGNATED_PORT,
     [](port_t *p) { designated(p), p->proposing = 0; }, STAYS},
    {"designated port that was agreed to does not propose", ROLETRNS_DESIGNATED_PORT,
     [](port_t *p) { young_designated(p), p->proposing = 0, p->agreed = p->sync = 1; }, ROLETRNS_DESIGNATED_SYNCED},
    {"designated edge port does not propose", ROLETRNS_DESIGNATED_PORT,
     [](port_t *p) { young_designated(p), p->proposing = 0, p->operEdge = 1; }, ROLETRNS_DESIGNATED_LEARN},
    {"designated port waits for roles", ROLETRNS_DESIGNATED_PORT,
     [](port_t *p) { young_designated(p), p->proposing = p->selected = 0; }, STAYS},
    {"designated port waits for information", ROLETRNS_DESIGNATED_PORT,
     [](port_t *p) { young_designated(p), p->proposing = 0, p->updtInfo = 1; }, STAYS},
    {"designated port retires", ROLETRNS_DESIGNATED_PORT, [](port_t *p) { designated(p), p->reRoot = 1; },
     ROLETRNS_DESIGNATED_RETIRED},
    {"designated port retires before it syncs", ROLETRNS_DESIGNATED_PORT,
     [](port_t *p) { designated(p), p->reRoot = p->sync = 1; }, ROLETRNS_DESIGNATED_RETIRED},
    {"designated port that discards is synced", ROLETRNS_DESIGNATED_PORT,
     [](port_t *p) { young_designated(p), p->synced = 0; }, ROLETRNS_DESIGNATED_SYNCED},
    {"designated port that learns is not synced by itself", ROLETRNS_DESIGNATED_PORT,
     [](port_t *p) { young_designated(p), p->learn = p->learning = 1, p->synced = 0; }, STAYS},
    {"designated port that forwards is not synced by itself", ROLETRNS_DESIGNATED_PORT,
     [](port_t *p) { designated(p), p->learning = p->synced = 0; }, STAYS},
    {"designated port that was agreed to is synced", ROLETRNS_DESIGNATED_PORT,
     [](port_t *p) { designated(p), p->agreed = 1, p->synced = 0; }, ROLETRNS_DESIGNATED_SYNCED},
    {"designated edge port is synced", ROLETRNS_DESIGNATED_PORT,
     [](port_t *p) { designated(p), p->operEdge = 1, p->synced = 0; }, ROLETRNS_DESIGNATED_SYNCED},
    {"designated port that is synced need not sync", ROLETRNS_DESIGNATED_PORT,
     [](port_t *p) { designated(p), p->sync = 1; }, ROLETRNS_DESIGNATED_SYNCED},
    {"designated port learns when its time is out", ROLETRNS_DESIGNATED_PORT,
     [](port_t *p) { young_designated(p), p->fdWhile = 0; }, ROLETRNS_DESIGNATED_LEARN},
    {"designated port learns when agreed to", ROLETRNS_DESIGNATED_PORT,
     [](port_t *p) { young_designated(p), p->agreed = 1; }, ROLETRNS_DESIGNATED_LEARN},
    {"designated edge port learns at once", ROLETRNS_DESIGNATED_PORT,
     [](port_t *p) { young_designated(p), p->operEdge = 1; }, ROLETRNS_DESIGNATED_LEARN},
    {"designated port does not learn while a re root runs", ROLETRNS_DESIGNATED_PORT,
     [](port_t *p) { young_designated(p), p->fdWhile = 0, p->reRoot = 1, p->rrWhile = 1; }, STAYS},
    {"designated port learns although it was root when no re root runs", ROLETRNS_DESIGNATED_PORT,
     [](port_t *p) { young_designated(p), p->fdWhile = 0, p->rrWhile = 1; }, ROLETRNS_DESIGNATED_LEARN},
    {"designated port forwards when its time is out", ROLETRNS_DESIGNATED_PORT,
     [](port_t *p) { young_designated(p), p->learn = 1, p->fdWhile = 0; }, ROLETRNS_DESIGNATED_FORWARD},
    {"designated port forwards when agreed to", ROLETRNS_DESIGNATED_PORT,
     [](port_t *p) { young_designated(p), p->learn = p->agreed = 1; }, ROLETRNS_DESIGNATED_FORWARD},
    {"designated edge port forwards at once", ROLETRNS_DESIGNATED_PORT,
     [](port_t *p) { young_designated(p), p->learn = p->operEdge = 1; }, ROLETRNS_DESIGNATED_FORWARD},
    {"designated port waits its time to forward", ROLETRNS_DESIGNATED_PORT,
     [](port_t *p) { young_designated(p), p->learn = 1; }, STAYS},
    {"designated port does not forward while a re root runs", ROLETRNS_DESIGNATED_PORT,
     [](port_t *p) { young_designated(p), p->learn = p->operEdge = 1, p->reRoot = 1, p->rrWhile = 1; }, STAYS},
    {"designated port that has to sync does not forward but listens", ROLETRNS_DESIGNATED_PORT,
     [](port_t *p) { young_designated(p), p->learn = p->learning = p->sync = 1, p->synced = p->fdWhile = 0; },
     ROLETRNS_DESIGNATED_LISTEN},
    {"designated port that has to sync listens", ROLETRNS_DESIGNATED_PORT,
     [](port_t *p) { designated(p), p->sync = 1, p->synced = 0; }, ROLETRNS_DESIGNATED_LISTEN},
    {"designated port listens while a re root runs", ROLETRNS_DESIGNATED_PORT,
     [](port_t *p) { designated(p), p->reRoot = 1, p->rrWhile = 1; }, ROLETRNS_DESIGNATED_LISTEN},
    {"designated port that only learns listens too", ROLETRNS_DESIGNATED_PORT,
     [](port_t *p) { young_designated(p), p->learn = p->reRoot = 1, p->rrWhile = 1; }, ROLETRNS_DESIGNATED_LISTEN},
    {"designated edge port never listens", ROLETRNS_DESIGNATED_PORT,
     [](port_t *p) { designated(p), p->operEdge = p->reRoot = 1, p->rrWhile = 1; }, STAYS},
    {"designated port that listens already need not", ROLETRNS_DESIGNATED_PORT,
     [](port_t *p) { young_designated(p), p->reRoot = 1, p->rrWhile = 1; }, STAYS},
    {"designated port that was root may stay when no re root runs", ROLETRNS_DESIGNATED_PORT,
     [](port_t *p) { designated(p), p->rrWhile = 1; }, STAYS},
};

class roletrns_moves : public machine_test, public testing::WithParamInterface<move_row_t> {};

TEST_P(roletrns_moves, row) { expect_move(&port_t::roletrns, GetParam()); }

INSTANTIATE_TEST_SUITE_P(when, roletrns_moves, testing::ValuesIn(roletrns_move_rows), label_of<move_row_t>);

// ---- all rules --------------------------------------------------------------------------

bool S(const port_t &p) { return p.selected && !p.updtInfo; }

bool changes(const port_t &p) { return S(p) && p.role != p.selectedRole; }

bool others_synced(const port_t &)
{
    for (const uint32_t number : {1, 3, 4}) {
        const port_t *other = port_of(number);
        if (other->stpEnabled && !other->nonStp && !other->synced)
            return false;
    }
    return true;
}

bool root_may_go_on(const port_t &p)
{
    bool others_rerooted = true;
    for (const uint32_t number : {1, 3, 4}) {
        const port_t *other = port_of(number);
        if (other->stpEnabled && !other->nonStp && other->rrWhile != 0)
            others_rerooted = false;
    }
    return p.fdWhile == 0 || (others_rerooted && p.rbWhile == 0 && world_now().force_version >= 2);
}

bool designated_may_go_on(const port_t &p)
{
    return (p.fdWhile == 0 || p.operEdge || p.agreed) && (p.rrWhile == 0 || !p.reRoot) && !p.sync;
}

const std::vector<rule_t> rules = {
    {STP_BEGIN, ALWAYS, ROLETRNS_INIT_PORT},
    {ANY, WHEN(changes(p) && p.selectedRole <= 2), ROLETRNS_BLOCK_PORT},
    {ANY, WHEN(changes(p) && p.selectedRole == 3), ROLETRNS_ROOT_PORT},
    {ANY, WHEN(changes(p) && p.selectedRole == 4), ROLETRNS_DESIGNATED_PORT},
    {ANY, WHEN(changes(p) && p.selectedRole == 5), STAYS},
    {ROLETRNS_INIT_PORT, ALWAYS, ROLETRNS_BLOCK_PORT},
    {ROLETRNS_BLOCK_PORT, WHEN(S(p) && !p.learning && !p.forwarding), ROLETRNS_BLOCKED_PORT},
    {ROLETRNS_BLOCKED_PORT, WHEN(S(p) && (p.fdWhile != FD || p.sync || p.reRoot || !p.synced)), ROLETRNS_BLOCKED_PORT},
    {ROLETRNS_BLOCKED_PORT, WHEN(S(p) && p.rbWhile != HT2 && p.role == 2), ROLETRNS_BACKUP_PORT},
    {ROLETRNS_BACKUP_PORT, ALWAYS, ROLETRNS_BLOCKED_PORT},
    {ROLETRNS_ROOT_PROPOSED, ALWAYS, ROLETRNS_ROOT_PORT},
    {ROLETRNS_ROOT_AGREED, ALWAYS, ROLETRNS_ROOT_PORT},
    {ROLETRNS_REROOT, ALWAYS, ROLETRNS_ROOT_PORT},
    {ROLETRNS_REROOTED, ALWAYS, ROLETRNS_ROOT_PORT},
    {ROLETRNS_ROOT_LEARN, ALWAYS, ROLETRNS_ROOT_PORT},
    {ROLETRNS_ROOT_FORWARD, ALWAYS, ROLETRNS_ROOT_PORT},
    {ROLETRNS_ROOT_PORT, WHEN(S(p) && !p.forward && !p.reRoot), ROLETRNS_REROOT},
    {ROLETRNS_ROOT_PORT, WHEN(S(p) && (p.proposed || !p.synced) && others_synced(p)), ROLETRNS_ROOT_AGREED},
    {ROLETRNS_ROOT_PORT, WHEN(S(p) && p.proposed && !p.synced), ROLETRNS_ROOT_PROPOSED},
    {ROLETRNS_ROOT_PORT, WHEN(S(p) && root_may_go_on(p) && !p.learn), ROLETRNS_ROOT_LEARN},
    {ROLETRNS_ROOT_PORT, WHEN(S(p) && root_may_go_on(p) && p.learn && !p.forward), ROLETRNS_ROOT_FORWARD},
    {ROLETRNS_ROOT_PORT, WHEN(S(p) && p.reRoot && p.forward), ROLETRNS_REROOTED},
    {ROLETRNS_ROOT_PORT, WHEN(S(p) && p.rrWhile != FD), ROLETRNS_ROOT_PORT},
    {ROLETRNS_DESIGNATED_PROPOSE, ALWAYS, ROLETRNS_DESIGNATED_PORT},
    {ROLETRNS_DESIGNATED_SYNCED, ALWAYS, ROLETRNS_DESIGNATED_PORT},
    {ROLETRNS_DESIGNATED_RETIRED, ALWAYS, ROLETRNS_DESIGNATED_PORT},
    {ROLETRNS_DESIGNATED_LISTEN, ALWAYS, ROLETRNS_DESIGNATED_PORT},
    {ROLETRNS_DESIGNATED_LEARN, ALWAYS, ROLETRNS_DESIGNATED_PORT},
    {ROLETRNS_DESIGNATED_FORWARD, ALWAYS, ROLETRNS_DESIGNATED_PORT},
    {ROLETRNS_DESIGNATED_PORT, WHEN(S(p) && !p.forward && !p.agreed && !p.proposing && !p.operEdge),
     ROLETRNS_DESIGNATED_PROPOSE},
    {ROLETRNS_DESIGNATED_PORT, WHEN(S(p) && p.rrWhile == 0 && p.reRoot), ROLETRNS_DESIGNATED_RETIRED},
    {ROLETRNS_DESIGNATED_PORT,
     WHEN(S(p) && ((!p.learning && !p.forwarding && !p.synced) || (p.agreed && !p.synced) ||
                   (p.operEdge && !p.synced) || (p.sync && p.synced))),
     ROLETRNS_DESIGNATED_SYNCED},
    {ROLETRNS_DESIGNATED_PORT, WHEN(S(p) && designated_may_go_on(p) && p.learn && !p.forward),
     ROLETRNS_DESIGNATED_FORWARD},
    {ROLETRNS_DESIGNATED_PORT, WHEN(S(p) && designated_may_go_on(p) && !p.learn), ROLETRNS_DESIGNATED_LEARN},
    {ROLETRNS_DESIGNATED_PORT,
     WHEN(S(p) && ((p.sync && !p.synced) || (p.reRoot && p.rrWhile != 0)) && !p.operEdge && (p.learn || p.forward)),
     ROLETRNS_DESIGNATED_LISTEN},
};

class roletrns : public machine_test {};

TEST_F(roletrns, follows_its_rules_whatever_the_port)
{
    expect_rules(&port_t::roletrns, rules, ROLETRNS_DESIGNATED_FORWARD);
}

// ---- entry actions ----------------------------------------------------------------------

void init_port(port_t *p)
{
    p->role = p->selectedRole = 0;
    p->synced = 0;
    p->sync = p->reRoot = p->reselect = 1;
    p->fdWhile = p->rrWhile = FD;
    p->rbWhile = 0;
}

const entry_row_t roletrns_entry_rows[] = {
    {"begin", STP_BEGIN, nothing, init_port},
    {"init port", ROLETRNS_INIT_PORT, nothing, init_port},
    {"block port", ROLETRNS_BLOCK_PORT, [](port_t *p) { p->selectedRole = ROLE_ALTERNATE; },
     [](port_t *p) { p->role = ROLE_ALTERNATE, p->learn = p->forward = 0; }},
    {"blocked port", ROLETRNS_BLOCKED_PORT, nothing,
     [](port_t *p) { p->fdWhile = FD, p->synced = 1, p->rrWhile = 0, p->sync = p->reRoot = 0; }},
    {"backup port", ROLETRNS_BACKUP_PORT, nothing, [](port_t *p) { p->rbWhile = HT2; }},
    {"backup port with long hellos", ROLETRNS_BACKUP_PORT, [](port_t *p) { p->owner->rootTimes.HelloTime = 130; },
     [](port_t *p) { p->rbWhile = 4; }},
    {"root proposed asks every port of the tree to sync", ROLETRNS_ROOT_PROPOSED, nothing,
     [](port_t *p) { port_of(1)->sync = port_of(2)->sync = port_of(3)->sync = 1, p->proposed = 0; }},
    {"root agreed", ROLETRNS_ROOT_AGREED, nothing,
     [](port_t *p) { p->proposed = p->sync = 0, p->synced = p->newInfo = 1; }},
    {"reroot asks every port of the tree", ROLETRNS_REROOT, nothing,
     [](port_t *) { port_of(1)->reRoot = port_of(2)->reRoot = port_of(3)->reRoot = 1; }},
    {"root port", ROLETRNS_ROOT_PORT, nothing, [](port_t *p) { p->role = ROLE_ROOT, p->rrWhile = FD; }},
    {"rerooted", ROLETRNS_REROOTED, nothing, [](port_t *p) { p->reRoot = 0; }},
    {"root learn", ROLETRNS_ROOT_LEARN, nothing, [](port_t *p) { p->fdWhile = FD, p->learn = 1; }},
    {"root forward", ROLETRNS_ROOT_FORWARD, nothing, [](port_t *p) { p->fdWhile = 0, p->forward = 1; }},
    {"designated propose", ROLETRNS_DESIGNATED_PROPOSE, nothing, [](port_t *p) { p->proposing = p->newInfo = 1; }},
    {"designated synced", ROLETRNS_DESIGNATED_SYNCED, nothing,
     [](port_t *p) { p->rrWhile = 0, p->sync = 0, p->synced = 1; }},
    {"designated retired", ROLETRNS_DESIGNATED_RETIRED, nothing, [](port_t *p) { p->reRoot = 0; }},
    {"designated port", ROLETRNS_DESIGNATED_PORT, nothing, [](port_t *p) { p->role = ROLE_DESIGNATED; }},
    {"designated listen", ROLETRNS_DESIGNATED_LISTEN, nothing,
     [](port_t *p) { p->learn = p->forward = 0, p->fdWhile = FD; }},
    {"designated learn", ROLETRNS_DESIGNATED_LEARN, nothing, [](port_t *p) { p->learn = 1, p->fdWhile = FD; }},
    {"designated forward", ROLETRNS_DESIGNATED_FORWARD, nothing, [](port_t *p) { p->forward = 1, p->fdWhile = 0; }},
};

class roletrns_entries : public machine_test, public testing::WithParamInterface<entry_row_t> {};

TEST_P(roletrns_entries, row) { expect_entry(&port_t::roletrns, GetParam()); }

INSTANTIATE_TEST_SUITE_P(of, roletrns_entries, testing::ValuesIn(roletrns_entry_rows), label_of<entry_row_t>);

} // namespace
