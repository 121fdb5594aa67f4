'use strict';

// What the lab was like at a moment, and what is said of its parts.

// ---- what it was like -----------------------------------------------------------------------------

const verbOf = event => event.what === 'command' ? event.value.split(' ')[0] : '';
const turnsCable = event => ['pull', 'plug', 'flap'].includes(verbOf(event));

/** The view after the first `count` events. */
function viewAfter(count) {
  // Events that are too old are not kept: what they told is not known then.
  const unknown = events[0].number > 1;
  const nodes = new Map();
  const cables = new Map();
  const ends = new Map();
  for (const node of live.nodes)
    nodes.set(node.name, {...node, power: true, daemon: true, root: '', root_port: 0, is_root: false});
  for (const cable of live.cables) {
    const first = events.find(event => event.cable === cable.name && turnsCable(event));
    const past = {
      name: cable.name,
      plugged: first ? verbOf(first) !== 'plug' : cable.plugged,
      ends: cable.ends.map(({name, node, port}) =>
        ({name, node, port, link: false, role: '', state: unknown ? '' : 'down', unknown})),
    };
    cables.set(cable.name, past);
    for (const end of past.ends)
      ends.set(`${end.node}:${end.port}`, end);
  }
  const lose = (node, all) => {
    node.root = '';
    for (const end of ends.values())
      if (end.node === node.name)
        Object.assign(end, {role: ''}, all ? {link: false, state: '', unknown: false} : {});
  };
  const boots = new Set();
  for (const event of events)
    if (verbOf(event) === 'power' && !boots.has(event.node)) {
      boots.add(event.node);
      nodes.get(event.node).power = event.value.endsWith(' off');
      nodes.get(event.node).daemon = nodes.get(event.node).power;
    }

  const view = {...live, nodes: [...nodes.values()], cables: [...cables.values()], at_rest: false};
  for (const event of events.slice(0, count)) {
    const node = nodes.get(event.node);
    const end = ends.get(`${event.node}:${event.port}`);
    view.ms = event.ms;
    view.at_rest = event.what === 'calm' || (view.at_rest && ['ping', 'daemon'].includes(event.what));
    if (event.what === 'link' && end)
      Object.assign(end, {link: event.value === 'up', unknown: false}, event.value === 'up' ? {} : {state: 'down'});
    else if (event.what === 'state' && end)
      Object.assign(end, {link: true, state: event.value, unknown: false});
    else if (event.what === 'role' && end)
      end.role = event.value;
    else if (event.what === 'root' && node)
      node.root = event.value;
    else if (event.what === 'daemon' && event.value === 'dead' && node)
      node.daemon = false;
    else if (turnsCable(event) && cables.has(event.cable))
      cables.get(event.cable).plugged = !cables.get(event.cable).plugged;
    else if (verbOf(event) === 'kill') {
      node.daemon = false;
      lose(node, false);
    } else if (verbOf(event) === 'restart')
      node.daemon = true;
    else if (verbOf(event) === 'power') {
      node.power = node.daemon = event.value.endsWith(' on');
      if (!node.power)
        lose(node, true);
    }
  }
  for (const node of view.nodes)
    node.is_root = node.daemon && node.root !== '' && node.root.endsWith('/' + node.mac);
  for (const cable of view.cables) {
    cable.ends.forEach((end, i) => {
      if (nodes.get(end.node).kind === 'host')
        Object.assign(end, {link: cable.plugged && nodes.get(cable.ends[1 - i].node).power, state: '', unknown: false});
    });
    cable.carries = cable.plugged && cable.ends.every(end =>
      end.link && (nodes.get(end.node).kind === 'host' || ['forwarding', 'off'].includes(end.state)));
  }
  return view;
}

// ---- words ---------------------------------------------------------------------------------------

const LETTERS = {root: 'R', designated: 'D', alternate: 'A', backup: 'B', disabled: '·', off: '○'};
const VERBS = {discarding: 'discards', learning: 'learns', forwarding: 'forwards'};

const isHost = (view, name) => view.nodes.find(node => node.name === name).kind === 'host';

const isUsual = end => end.link && end.state === 'forwarding' && !['alternate', 'backup'].includes(end.role);

/** "root", "alternate, discards": the state is told where it is not the usual one. */
function endWords(view, end) {
  const node = view.nodes.find(known => known.name === end.node);
  if (node.kind === 'host' || !node.power)
    return '';
  if (end.unknown)
    return 'not known';
  if (!end.link)
    return 'no link';
  // States are told at once, roles once a second: of a link that has just come the role is not known yet.
  if (!end.role || end.role === 'disabled')
    return VERBS[end.state] || end.state;
  if (end.role === 'off')
    return 'off';
  return isUsual(end) ? end.role : `${end.role}, ${VERBS[end.state] || end.state}`;
}

function endState(view, end) {
  return end.unknown || !end.link ? 'none' : end.state || 'forwarding';
}

function cableState(view, cable) {
  if (!cable.plugged)
    return 'pulled';
  if (cable.ends.some(end => end.unknown))
    return 'unknown';
  if (cable.carries)
    return 'carries';
  return cable.ends.every(end => end.link) ? 'cut' : 'dead';
}

function cableWords(view, cable) {
  const state = {
    pulled: 'pulled out', unknown: 'not known', carries: 'carries data', cut: 'carries no data', dead: 'has no link',
  }[cableState(view, cable)];
  const ends = cable.ends.map(end => {
    const words = cable.plugged ? endWords(view, end) : '';
    return words ? `${end.name} ${words}` : end.name;
  });
  const quality = cable.ends.filter(end => end.quality).map(end => `, from ${end.name} ${end.quality}`).join('');
  return `Cable ${ends.join(' to ')}: ${state}${quality}`;
}

function nodeNote(node) {
  if (!node.power)
    return 'no power';
  if (node.kind === 'host')
    return node.bridge;
  if (!node.daemon)
    return 'no daemon';
  return node.is_root ? 'root' : node.kind === 'switch' ? '' : node.kind;
}
