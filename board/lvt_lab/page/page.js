'use strict';

// The address that the program prints ends in the token, which is in no request but those for the lab.
const token = location.hash.slice(1);
const $ = id => document.getElementById(id);

/** The latest view of the lab, as `lvt_lab show -j` tells it. */
let live = null;
/** All that has happened, as `lvt_lab monitor -j` tells it. */
const events = [];
/** Where nodes and cables are drawn. */
let layout = null;
/** How many events the moment that is shown comes after; nothing: it is now. */
let moment = null;
/** The node whose tables are shown. */
let selected = null;
/** What flows over each end of each cable, in frames a second, BPDUs apart. */
let rates = new Map();
let sample = null;
let ended = false;

// ---- making elements -------------------------------------------------------------------------------

function element(name, attributes = {}, ...children) {
  const made = document.createElement(name);
  for (const [key, value] of Object.entries(attributes))
    made.setAttribute(key, value);
  made.append(...children);
  return made;
}

function shape(name, attributes = {}, ...children) {
  const made = document.createElementNS('http://www.w3.org/2000/svg', name);
  for (const [key, value] of Object.entries(attributes))
    made.setAttribute(key, value);
  made.append(...children);
  return made;
}

/** Sets what has changed only, so that nothing is drawn anew in vain. */
function put(target, text) {
  if (target.textContent !== text)
    target.textContent = text;
}

function putClass(target, words) {
  if (target.getAttribute('class') !== words)
    target.setAttribute('class', words);
}

function describe(target, words) {
  if (target.getAttribute('aria-label') !== words)
    target.setAttribute('aria-label', words);
}

function seconds(ms) {
  return (ms / 1000).toFixed(3);
}

let noticeTimer = 0;
function notify(words) {
  $('notice').textContent = words;
  $('notice').hidden = false;
  clearTimeout(noticeTimer);
  noticeTimer = setTimeout(() => { $('notice').hidden = true; }, 6000);
}

// ---- beside the picture ---------------------------------------------------------------------------

function rootOf(view) {
  const counts = new Map();
  for (const node of view.nodes)
    if (node.root)
      counts.set(node.root, (counts.get(node.root) || 0) + 1);
  const roots = view.nodes.filter(node => node.is_root && node.power);
  roots.sort((one, other) => (counts.get(other.root) || 0) - (counts.get(one.root) || 0));
  return roots.length ? roots[0] : null;
}

function eventLine(event, index) {
  const line = element('li', {class: event.what}, element('time', {}, seconds(event.ms)),
    element('span', {}, event.text));
  line.addEventListener('click', () => goTo(index + 1));
  return line;
}

/** The latest events up to the moment, the latest one first. */
function listEvents(list, count, max, wanted) {
  const key = `${count} ${max} ${events.length && events[0].number} ${selected}`;
  if (list.dataset.told === key)
    return;
  list.dataset.told = key;
  const lines = [];
  for (let i = count - 1; i >= 0 && lines.length < max; i--)
    if (wanted(events[i]))
      lines.push(eventLine(events[i], i));
  list.replaceChildren(...lines);
}

function rootName(view, root) {
  const found = view.nodes.find(node => root && root.endsWith('/' + node.mac));
  return found ? found.name : root;
}

function showDetails(view) {
  const node = view.nodes.find(known => known.name === selected);
  $('details').hidden = !node;
  if (!node)
    return;
  const host = node.kind === 'host';
  put($('details-title'), node.name);
  const facts = [['Kind', node.kind + (node.rapid ? ', rapid' : '')], [host ? 'Address' : 'Bridge', node.bridge]];
  const lack = !node.power ? 'no power' : !node.daemon ? 'no daemon' : '';
  if (!host)
    facts.push(['Root', lack || (node.is_root ? 'itself' : rootName(view, node.root))]);
  if (node.root_port)
    facts.push(['Root port', String(node.root_port)]);
  facts.push(['MAC address', node.mac]);
  fill($('facts'), facts, ([name, value]) => [element('dt', {}, name), element('dd', {}, value)]);

  const its = view.cables.flatMap(cable => cable.ends.map((end, i) => ({cable, end, other: cable.ends[1 - i]})))
    .filter(({end}) => end.node === node.name)
    .sort((one, other) => one.end.port - other.end.port);
  const ports = its.map(({cable, end, other}) => {
    const link = !cable.plugged ? 'pulled out' : end.unknown ? 'not known' : !end.link ? 'no link' : '';
    const hears = other.claim ? `${rootName(view, other.claim.root)}, at ${other.claim.cost}` : '';
    return host ? [other.name, link]
      : [end.port, other.name, end.role, link || VERBS[end.state] || end.state, end.cost || '', hears];
  });
  const counts = its.map(({end, other}) =>
    [other.name, end.bpdus, other.bpdus, end.frames, other.frames, end.lost, other.lost]);
  fillTable($('ports'), host ? ['To', 'Link'] : ['Port', 'To', 'Role', 'State', 'Cost', 'Hears of root'], ports);
  fillTable($('counts'), ['To', 'BPDUs out', 'in', 'Frames out', 'in', 'Lost out', 'in'], counts);
  $('counts').hidden = moment !== null; // what was counted is known of now only

  const deeds = host ? [] : [
    node.daemon ? ['Kill the daemon', `kill ${node.name}`] : ['Start the daemon', `restart ${node.name}`],
    node.power ? ['Take its power', `power ${node.name} off`] : ['Give it power', `power ${node.name} on`],
  ].filter(([, command]) => node.power || !command.startsWith('restart'));
  fill($('deeds'), deeds, ([words, command]) => {
    const button = element('button', {type: 'button'}, words);
    button.addEventListener('click', () => act(command));
    return [button];
  });
  for (const button of $('deeds').children)
    button.disabled = moment !== null || ended;
  listEvents($('its-events'), moment === null ? events.length : moment, 8, event => event.node === node.name);
}

function fillTable(table, titles, rows) {
  const row = (kind, texts) => [element('tr', {}, ...texts.map(text => element(kind, {}, String(text))))];
  fill(table.tHead, [titles], texts => row('th', texts));
  fill(table.tBodies[0], rows, texts => row('td', texts));
}

/** Makes the children anew where what they tell has changed. */
function fill(target, rows, make) {
  const key = JSON.stringify(rows);
  if (target.dataset.told === key)
    return;
  target.dataset.told = key;
  target.replaceChildren(...rows.flatMap(make));
}

function select(name) {
  const before = selected;
  selected = name;
  render();
  if (name)
    $('details-title').focus({preventScroll: false});
  else if (before)
    drawn.nodes.get(before).group.focus();
}

function showLegend() {
  const sign = (width, group) => shape('svg', {width, height: 20, 'aria-hidden': 'true'}, group);
  const bar = (x, words) => shape('path', {class: words, d: `M${x},0V20`});
  const end = (width, state, text) => sign(width, shape('g', {class: `end ${state}`},
    shape('rect', {x: 1, y: 1, width: 30, height: 18, rx: 6}), shape('text', {class: 'badge', x: 16, y: 14}, text),
    bar(38, 'bar first'), bar(45, 'bar')));
  const cable = (state, words = 'wire', path = 'M0,10H40') =>
    sign(40, shape('g', {class: `cable ${state}`}, shape('path', {class: words, d: path})));
  const items = [
    [end(32, 'forwarding', '1 R'), 'forwards; R root port, D designated'],
    [end(48, 'discarding', '2 A'), 'discards; A alternate, B backup'],
    [end(41, 'learning', '3 D'), 'learns'],
    [cable('carries'), 'carries data'],
    [cable('cut'), 'cut by the end with the bars'],
    [cable('dead'), 'no link'],
    [cable('pulled', 'wire', 'M0,10H12M28,10H40'), 'pulled out'],
    [cable('', 'flow on', 'M3,10H40'), 'data flows, frames a second'],
  ];
  $('legend').replaceChildren(...items.map(([picture, words]) =>
    element('div', {}, element('dt', {}, picture), element('dd', {}, words))));
}

// ---- the time line ----------------------------------------------------------------------------------

function goTo(count) {
  moment = count >= events.length ? null : Math.max(1, count);
  render();
}

/** The nearest command before or after the moment. */
function deedFrom(direction) {
  for (let i = (moment === null ? events.length : moment) - 1 + direction; i >= 0 && i < events.length; i += direction)
    if (events[i].what === 'command')
      return i + 1;
  return direction < 0 ? 1 : events.length;
}

function showTime(view) {
  const count = moment === null ? events.length : moment;
  const slider = $('time');
  slider.max = Math.max(1, events.length);
  slider.value = count;
  const event = events[count - 1];
  const words = moment === null ? 'now' : `${seconds(event.ms)} s: ${event.text}`;
  slider.setAttribute('aria-valuetext', words);
  put($('moment'), words);
  $('moment').title = words;
  for (const id of ['now', 'after', 'after-deed'])
    $(id).disabled = moment === null;
  for (const id of ['before', 'before-deed'])
    $(id).disabled = count <= 1;
  document.body.classList.toggle('past', moment !== null);

  const marks = [];
  events.forEach((known, i) => {
    if (known.what === 'command')
      marks.push([i, known.text]);
  });
  fill($('marks'), [[events.length], ...marks.slice(-80)], ([i, text]) => {
    if (text === undefined)
      return [];
    const mark = element('i', {title: text});
    mark.style.left = `${100 * i / Math.max(1, events.length - 1)}%`;
    mark.addEventListener('click', () => goTo(i + 1));
    return [mark];
  });
}

// ---- doing -----------------------------------------------------------------------------------------

async function act(command) {
  if (ended)
    return notify('The lab has ended.');
  if (moment !== null)
    return notify('This is what was. Go to now, and then change it.');
  try {
    const answer = await fetch('act', {method: 'POST', headers: {'X-Lab-Token': token}, body: command});
    if (!answer.ok)
      notify(await answer.text());
  } catch {
    notify('The page\'s program does not answer.');
  }
}

async function turn(name) {
  const cable = live.cables.find(known => known.name === name);
  const its = drawn.cables.get(name);
  its.group.classList.add('busy');
  await act(`${cable.plugged ? 'pull' : 'plug'} ${name}`);
  its.group.classList.remove('busy');
}

let asks = false;
async function arrange(top) {
  if (asks)
    return;
  asks = true;
  const settled = live.at_rest;
  try {
    const answer = await fetch(`layout?top=${encodeURIComponent(top)}`, {headers: {'X-Lab-Token': token}});
    if (answer.ok) {
      layout = await answer.json();
      layout.settled = settled;
      drawAll();
      render();
    } else
      notify(await answer.text());
  } catch (problem) {
    console.error(problem);
    mood('no connection', 'lost');
  }
  asks = false;
}

// ---- all together -----------------------------------------------------------------------------------

function mood(words, kind) {
  put($('mood'), words);
  putClass($('mood'), `chip ${kind}`);
}

let connected = false;
function render() {
  if (!live || !events.length)
    return;
  const root = rootOf(live);
  // The root is drawn on top as soon as the lab knows its root; later only when asked for, so that nothing jumps.
  if (!layout || (!layout.settled && live.at_rest && root && layout.top !== root.name))
    return void arrange(root ? root.name : '');
  layout.settled = layout.settled || live.at_rest;
  const view = moment === null ? live : viewAfter(moment);
  const shownRoot = rootOf(view);
  document.title = `${live.lab}: ${shownRoot ? `root ${shownRoot.name}` : 'no root'}`;
  put($('lab'), live.lab);
  const hosts = live.nodes.filter(node => node.kind === 'host').length;
  const count = (number, one, more) => `${number} ${number === 1 ? one : more}`;
  put($('summary'), `${count(live.nodes.length - hosts, 'switch', 'switches')}, ` +
    `${count(live.cables.length, 'cable', 'cables')}, ${count(hosts, 'host', 'hosts')}; ` +
    (shownRoot ? `the root is ${shownRoot.name}` : 'no root'));
  if (ended)
    mood('the lab has ended', 'lost');
  else if (!connected)
    mood('no connection', 'lost');
  else if (moment !== null)
    mood(`as it was ${((live.ms - view.ms) / 1000).toFixed(1)} s ago`, 'past');
  else
    mood(live.at_rest ? 'at rest' : 'changing', live.at_rest ? 'rest' : '');
  $('arrange').hidden = !shownRoot || layout.top === shownRoot.name;
  paint(view);
  if (hinted && hinted.isConnected)
    put($('hint'), hinted.getAttribute('aria-label'));
  showTime(view);
  showDetails(view);
  listEvents($('events'), moment === null ? events.length : moment, 80, () => true);
}

let planned = false;
function plan() {
  if (planned)
    return;
  planned = true;
  requestAnimationFrame(() => {
    planned = false;
    render();
  });
}

/** The nearest thing in the picture in the direction of an arrow key. */
function moveFocus(key) {
  const from = document.activeElement;
  const [dx, dy] = {ArrowLeft: [-1, 0], ArrowRight: [1, 0], ArrowUp: [0, -1], ArrowDown: [0, 1]}[key];
  const centre = group => {
    const box = (group.querySelector('.wire') || group).getBoundingClientRect();
    return {x: box.x + box.width / 2, y: box.y + box.height / 2};
  };
  const here = centre(from);
  let best = null;
  let least = Infinity;
  for (const group of $('picture').querySelectorAll('[data-key]')) {
    const there = centre(group);
    const along = (there.x - here.x) * dx + (there.y - here.y) * dy;
    const aside = Math.abs((there.x - here.x) * dy) + Math.abs((there.y - here.y) * dx);
    if (group !== from && along > 1 && along + 2 * aside < least) {
      least = along + 2 * aside;
      best = group;
    }
  }
  best?.focus();
}

function listen() {
  const source = new EventSource(`events?token=${encodeURIComponent(token)}`);
  source.addEventListener('open', () => {
    connected = true;
    plan();
  });
  source.addEventListener('happened', message => {
    const known = events.length ? events[events.length - 1].number : 0;
    events.push(...JSON.parse(message.data).filter(event => event.number > known));
    plan();
  });
  source.addEventListener('view', message => {
    live = JSON.parse(message.data);
    measure(live);
    plan();
  });
  source.addEventListener('ended', () => {
    ended = true;
    source.close();
    plan();
  });
  source.addEventListener('error', () => {
    connected = false;
    mood('no connection', 'lost');
    plan();
  });
}

function begin() {
  showLegend();
  if (!token) {
    mood('no token', 'lost');
    put($('hint'), 'Open the address that lvt_lab page prints, with all that follows the #.');
    return;
  }
  $('time').addEventListener('input', () => goTo(Number($('time').value)));
  $('before').addEventListener('click', () => goTo((moment === null ? events.length : moment) - 1));
  $('after').addEventListener('click', () => goTo(moment + 1));
  $('before-deed').addEventListener('click', () => goTo(deedFrom(-1)));
  $('after-deed').addEventListener('click', () => goTo(deedFrom(1)));
  $('now').addEventListener('click', () => goTo(events.length));
  $('close').addEventListener('click', () => select(null));
  $('arrange').addEventListener('click', () => arrange(rootOf(moment === null ? live : viewAfter(moment)).name));
  $('picture').addEventListener('keydown', event => {
    if (event.key.startsWith('Arrow')) {
      event.preventDefault();
      moveFocus(event.key);
    }
  });
  document.addEventListener('keydown', event => {
    if (event.key === 'Escape' && selected)
      select(null);
  });
  new ResizeObserver(fit).observe($('paper'));
  listen();
}

begin();
