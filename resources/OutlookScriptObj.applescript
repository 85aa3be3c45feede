-- OutlookScriptObj: the agent's bridge to Microsoft Outlook for Mac, loaded through AppleScriptObjC
-- from the application bundle (compiled by osacompile into Contents/Resources/OutlookScriptObj.scpt).
-- The agent allocates a fresh instance for every operation, without init, so the script keeps no
-- state in properties; it sends the instance one handler (two when it applies the two default
-- signatures one by one). Every argument arrives as text.
--
-- Outlook is addressed by its bundle identifier, never by name, and only once it is known to be
-- installed: the agent runs every hour, and naming a missing application would ask the user where
-- it is. Without Outlook the reading handlers answer empty text and the others raise an error.
--
-- Signatures are created, read and deleted through Outlook's scripting dictionary ("signature" with
-- "name" and "content", the application's "default account"). Outlook does not script its default
-- signatures, so the apply handlers drive its Signatures window (Settings > Signatures, Preferences
-- in older versions) by GUI scripting through System Events, which is why the agent needs the
-- accessibility permission. Controls are found by their role and place on screen rather than their
-- English labels, except the Signatures button of the Settings window. That window stays open for the
-- user to close, as the apply dialog says.
--
-- The "new Outlook" interface scripts almost nothing: no signatures, no default account. There
-- Outlook's own errors (-1708 "doesn't understand", -1728 "can't get") reach the agent as they are,
-- and so does -1743 when the user refused the agent's automation of Outlook: the agent names the
-- cause by the error number. No handler swallows an error; the reading handlers answer empty text
-- only where Outlook itself has nothing (no default account, no such signature), and a missing
-- Outlook raises -10814 as Launch Services reports it.

use AppleScript version "2.4"
use framework "Foundation"
use framework "AppKit" -- NSWorkspace
use scripting additions -- delay, once there are use statements

script OutlookScriptObj
	property parent : class "NSObject"

	-- Launch Services knows the application without starting it.
	on outlookInstalled()
		set outlookURL to current application's NSWorkspace's sharedWorkspace()'s URLForApplicationWithBundleIdentifier:"com.microsoft.Outlook"
		return outlookURL is not missing value
	end outlookInstalled

	on requireOutlook()
		if not my outlookInstalled() then error "Microsoft Outlook is not installed" number -10814
	end requireOutlook

	on getVersion()
		my requireOutlook()
		tell application id "com.microsoft.Outlook" to return (version as text)
	end getVersion

	-- The default account is an Exchange, IMAP or POP account; each of them has an email address.
	on getDefaultAccount()
		my requireOutlook()
		tell application id "com.microsoft.Outlook"
			set defaultAccount to default account
			if defaultAccount is missing value then return ""
			set accountEmail to email address of defaultAccount
		end tell
		if accountEmail is missing value then return ""
		return accountEmail as text
	end getDefaultAccount

	-- Outlook keeps a signature's content as HTML of its own; empty text when there is no such signature.
	on getSignature:signatureName
		my requireOutlook()
		set signatureName to signatureName as text
		tell application id "com.microsoft.Outlook"
			if not (exists signature signatureName) then return ""
			return (content of signature signatureName) as text
		end tell
	end getSignature:

	-- A signature that exists keeps its identity and only gets the new content, so Outlook's default
	-- assignments to it survive (deleting it would clear them). Duplicates of the name are removed.
	on createSignature:signatureName content:signatureContent
		my requireOutlook()
		set signatureName to signatureName as text
		set signatureContent to signatureContent as text
		tell application id "com.microsoft.Outlook"
			set existing to every signature whose name is signatureName
			if (count of existing) is 0 then
				make new signature with properties {name:signatureName, content:signatureContent}
			else
				set content of item 1 of existing to signatureContent
				repeat with extraSignature in rest of existing
					delete (contents of extraSignature)
				end repeat
			end if
			if not (exists signature signatureName) then error "Outlook did not keep the signature " & signatureName
		end tell
	end createSignature:content:

	on deleteSignature:signatureName
		my requireOutlook()
		set signatureName to signatureName as text
		tell application id "com.microsoft.Outlook"
			if exists signature signatureName then delete (every signature whose name is signatureName)
			if exists signature signatureName then error "Outlook did not delete the signature " & signatureName
		end tell
	end deleteSignature:

	-- One name per line, so the agent can remove the signatures its deployment does not hold and leave
	-- its own in place (with their default assignments).
	on getSignatureNames()
		my requireOutlook()
		tell application id "com.microsoft.Outlook" to set signatureNames to name of every signature
		set savedDelimiters to AppleScript's text item delimiters
		set AppleScript's text item delimiters to linefeed
		set listing to signatureNames as text
		set AppleScript's text item delimiters to savedDelimiters
		return listing
	end getSignatureNames

	on deleteSignatures()
		my requireOutlook()
		tell application id "com.microsoft.Outlook"
			delete every signature
			if (count of signatures) is not 0 then error "Outlook did not delete every signature"
		end tell
	end deleteSignatures

	-- The names are written out in every handler: an instance the agent never inits may lack its
	-- properties. Empty text stands for no signature, missing value for a default left as it is.
	on applySignaturesFor:accountAddress
		my chooseDefaults(accountAddress as text, "Default New Email Signature", "Default Reply Forward Email Signature")
	end applySignaturesFor:

	on applyDefaultNewSignatureFor:accountAddress
		my chooseDefaults(accountAddress as text, "Default New Email Signature", missing value)
	end applyDefaultNewSignatureFor:

	on applyDefaultReplySignatureFor:accountAddress
		my chooseDefaults(accountAddress as text, missing value, "Default Reply Forward Email Signature")
	end applyDefaultReplySignatureFor:

	on applyNoneSignaturesFor:accountAddress
		my chooseDefaults(accountAddress as text, "", "")
	end applyNoneSignaturesFor:

	on applyNoneDefaultNewSignatureFor:accountAddress
		my chooseDefaults(accountAddress as text, "", missing value)
	end applyNoneDefaultNewSignatureFor:

	on applyNoneDefaultReplySignatureFor:accountAddress
		my chooseDefaults(accountAddress as text, missing value, "")
	end applyNoneDefaultReplySignatureFor:

	-- Selects the account in the Signatures window, then the signature of each default. The window's
	-- three pop-up buttons, in screen order, are Account, New messages and Replies/forwards. Every
	-- step that fails raises an error that names the step.
	on chooseDefaults(accountAddress, newChoice, replyChoice)
		my requireOutlook()
		if accountAddress is "" then error "No account address to choose in Outlook's Signatures window"
		set accountLabel to my accountNameFor(accountAddress)
		my bringOutlookToFront()
		set popUps to my openSignaturesWindow()
		my chooseItem(item 1 of popUps, "Account", accountLabel, false)
		if newChoice is not missing value then my chooseItem(item 2 of popUps, "New messages", newChoice, true)
		if replyChoice is not missing value then my chooseItem(item 3 of popUps, "Replies/forwards", replyChoice, true)
	end chooseDefaults

	-- The Account pop-up lists accounts by name, which the user may have changed from the address:
	-- the name of the Exchange, IMAP or POP account with that address, else the address itself.
	on accountNameFor(accountAddress)
		try
			tell application id "com.microsoft.Outlook"
				set outlookAccounts to (every exchange account) & (every imap account) & (every pop account)
			end tell
			repeat with anAccount in outlookAccounts
				set theAccount to contents of anAccount
				tell application id "com.microsoft.Outlook"
					set accountEmail to email address of theAccount
					set accountName to name of theAccount
				end tell
				if accountEmail is not missing value and accountName is not missing value then
					ignoring case
						if (accountEmail as text) is accountAddress and (accountName as text) is not "" then return accountName as text
					end ignoring
				end if
			end repeat
		on error errorText number errorNumber
			error "Cannot read Outlook's accounts: " & errorText number errorNumber
		end try
		return accountAddress
	end accountNameFor

	-- Keystrokes go to the frontmost application, so Outlook must be in front before the first one.
	-- A cold start of Outlook takes a while: give up after 30 seconds.
	on bringOutlookToFront()
		tell application id "com.microsoft.Outlook" to activate
		set lastProblem to ""
		repeat 150 times
			try
				set outlookProcess to my findOutlookProcess()
				tell application "System Events"
					if frontmost of outlookProcess then return
					set frontmost of outlookProcess to true
				end tell
			on error errorText number errorNumber
				if errorNumber is -1743 then error "Cannot control System Events (activating Outlook): " & errorText number errorNumber
				set lastProblem to ": " & errorText
			end try
			delay 0.2
		end repeat
		error "Outlook did not come to the front within 30 seconds (activating Outlook)" & lastProblem
	end bringOutlookToFront

	on findOutlookProcess()
		tell application "System Events"
			set outlookProcesses to every application process whose bundle identifier is "com.microsoft.Outlook"
		end tell
		if outlookProcesses is {} then error "Outlook is not running"
		return item 1 of outlookProcesses
	end findOutlookProcess

	-- Command-comma brings Outlook's Settings window to the front, opening it if need be; from there
	-- the Signatures button opens the Signatures window (or pane). A Signatures window left open, by an
	-- earlier message or by the user, is used as it is. Answers its three pop-up buttons.
	on openSignaturesWindow()
		set previousName to my nameOfWindow(my outlookFrontWindow())
		try
			tell application "System Events" to keystroke "," using command down
		on error errorText number errorNumber
			error "Cannot send Command-comma to Outlook (opening its Settings window): " & errorText number errorNumber
		end try
		set settingsWindow to my frontWindowAfter(previousName)
		set popUps to my signaturesPopUps(settingsWindow)
		if (count of popUps) is 3 then return popUps
		my clickSignaturesButton(settingsWindow)
		repeat 50 times
			delay 0.2
			set frontOne to my outlookFrontWindow()
			if frontOne is not missing value then
				set popUps to my signaturesPopUps(frontOne)
				if (count of popUps) is 3 then return popUps
			end if
		end repeat
		set seenWindow to "its front window \"" & my nameOfWindow(frontOne) & "\" has " & (count of popUps) & " pop-up buttons"
		error "Outlook did not open its Signatures window within 10 seconds: " & seenWindow & ", not the three of Account, New messages and Replies/forwards"
	end openSignaturesWindow

	-- The front window once it is another than before the keystroke. When the Settings (or Signatures)
	-- window was in front already, nothing changes: after five seconds the front window is taken as it is.
	on frontWindowAfter(previousName)
		repeat 25 times
			delay 0.2
			set frontOne to my outlookFrontWindow()
			if frontOne is not missing value and my nameOfWindow(frontOne) is not previousName then return frontOne
		end repeat
		if frontOne is missing value then error "Outlook did not open its Settings window within 5 seconds: it shows no window"
		return frontOne
	end frontWindowAfter

	-- Outlook's front window, missing value when it shows none.
	on outlookFrontWindow()
		set outlookProcess to my findOutlookProcess()
		try
			tell application "System Events"
				if (count of windows of outlookProcess) is 0 then return missing value
				set frontOne to window 1 of outlookProcess
			end tell
		on error errorText number errorNumber
			error "Cannot read Outlook's windows: " & errorText number errorNumber
		end try
		return frontOne
	end outlookFrontWindow

	-- A window's name as text, empty when it has none or there is no window.
	on nameOfWindow(theWindow)
		if theWindow is missing value then return ""
		try
			tell application "System Events" to set windowTitle to name of theWindow
		on error
			return "" -- closed meanwhile
		end try
		if windowTitle is missing value then return ""
		return windowTitle as text
	end nameOfWindow

	-- The Settings window lists its panes as buttons, labelled by their name, title or description.
	on clickSignaturesButton(settingsWindow)
		set labelsSeen to {}
		set settingsButtons to my elementsWithRole(settingsWindow, "AXButton")
		repeat with aButton in settingsButtons
			set theButton to contents of aButton
			set buttonLabels to {}
			try
				tell application "System Events" to set buttonLabels to {name of theButton, title of theButton, description of theButton}
			end try
			ignoring case
				set isSignatures to buttonLabels contains {"Signatures"}
			end ignoring
			if isSignatures then
				try
					tell application "System Events" to click theButton
				on error errorText number errorNumber
					error "Cannot click the Signatures button of Outlook's Settings window: " & errorText number errorNumber
				end try
				return
			end if
			repeat with aLabel in buttonLabels
				if contents of aLabel is not missing value and contents of aLabel is not "" then
					set end of labelsSeen to contents of aLabel as text
					exit repeat
				end if
			end repeat
		end repeat
		error "No Signatures button in Outlook's Settings window \"" & my nameOfWindow(settingsWindow) & "\"; buttons seen: " & my joined(labelsSeen)
	end clickSignaturesButton

	-- The UI elements of a window with the given accessibility role. Outlook nests its controls in
	-- groups, so the search goes down the window's tree, breadth first; it skips text, images, tables
	-- and web content and looks at no more than 400 elements, so that a large window cannot hold it up.
	on elementsWithRole(theWindow, wantedRole)
		set found to {}
		set pending to {theWindow}
		set looked to 0
		repeat while pending is not {} and looked < 400
			set parentElement to item 1 of pending
			set pending to rest of pending
			try
				tell application "System Events"
					set childElements to UI elements of parentElement
					set childRoles to role of UI elements of parentElement
				end tell
			on error
				set childElements to {}
				set childRoles to {}
			end try
			if (count of childRoles) is not (count of childElements) then set childElements to {}
			repeat with i from 1 to count of childElements
				set looked to looked + 1
				set childRole to item i of childRoles
				if childRole is wantedRole then
					set end of found to item i of childElements
				else if childRole is not in {"AXStaticText", "AXImage", "AXTable", "AXOutline", "AXWebArea", "AXTextArea", "AXScrollBar"} then
					set end of pending to item i of childElements
				end if
			end repeat
		end repeat
		return found
	end elementsWithRole

	-- The window's pop-up buttons, top to bottom, then left to right, when there are three of them
	-- (the Signatures window); as found otherwise.
	on signaturesPopUps(theWindow)
		set popUps to my elementsWithRole(theWindow, "AXPopUpButton")
		if (count of popUps) is not 3 then return popUps
		set entries to {}
		repeat with aPopUp in popUps
			set thePopUp to contents of aPopUp
			try
				tell application "System Events"
					set {leftEdge, topEdge} to position of thePopUp
					set {popUpWidth, popUpHeight} to size of thePopUp
				end tell
			on error errorText number errorNumber
				error "Cannot read where the pop-up buttons of Outlook's Signatures window are: " & errorText number errorNumber
			end try
			set end of entries to {leftEdge, topEdge + popUpHeight / 2, thePopUp}
		end repeat
		repeat with i from 2 to count of entries
			set j to i
			repeat while j > 1 and my precedes(item j of entries, item (j - 1) of entries)
				set held to item j of entries
				set item j of entries to item (j - 1) of entries
				set item (j - 1) of entries to held
				set j to j - 1
			end repeat
		end repeat
		return {item 3 of item 1 of entries, item 3 of item 2 of entries, item 3 of item 3 of entries}
	end signaturesPopUps

	-- Entries are {left edge, vertical middle, pop-up}. Middles within 10 points of each other share a row.
	on precedes(anEntry, otherEntry)
		set drop to (item 2 of otherEntry) - (item 2 of anEntry)
		if drop > 10 then return true
		if drop < -10 then return false
		return (item 1 of anEntry) < (item 1 of otherEntry)
	end precedes

	-- Picks wanted in the pop-up: the item of that name, or the first that contains it unless
	-- wholeName; empty text picks the first item, which is "no signature" in every language. A pop-up
	-- that shows the name already is left alone, so one Outlook has disabled is no obstacle then.
	on chooseItem(popUp, popUpLabel, wanted, wholeName)
		if wanted is not "" then
			try
				tell application "System Events" to set shownValue to value of popUp
				ignoring case
					if shownValue is not missing value and (shownValue as text) is wanted then return
				end ignoring
			end try
		end if
		set itemNames to my openPopUp(popUp, popUpLabel)
		if wanted is "" then
			set chosen to 1
			set wantedLabel to "no signature (the first item)"
		else
			set chosen to my indexOfName(itemNames, wanted, true)
			if chosen is 0 and not wholeName then set chosen to my indexOfName(itemNames, wanted, false)
			set wantedLabel to wanted
		end if
		if chosen is 0 then
			my closeMenu()
			error "No item of the " & popUpLabel & " pop-up of Outlook's Signatures window matches " & wanted & "; items seen: " & my joined(itemNames)
		end if
		try
			tell application "System Events" to click menu item chosen of menu 1 of popUp
		on error errorText number errorNumber
			my closeMenu()
			error "Cannot choose " & wantedLabel & " in the " & popUpLabel & " pop-up of Outlook's Signatures window: " & errorText number errorNumber
		end try
		delay 0.5 -- let Outlook take the choice in before the next pop-up
	end chooseItem

	-- Opens the pop-up button and answers the names of its menu items (missing value for separators).
	on openPopUp(popUp, popUpLabel)
		try
			tell application "System Events" to click popUp
		on error errorText number errorNumber
			error "Cannot open the " & popUpLabel & " pop-up of Outlook's Signatures window: " & errorText number errorNumber
		end try
		repeat 25 times
			delay 0.2
			try
				tell application "System Events" to set itemNames to name of every menu item of menu 1 of popUp
				if itemNames is not {} then return itemNames
			end try
		end repeat
		my closeMenu()
		error "The " & popUpLabel & " pop-up of Outlook's Signatures window showed no menu within 5 seconds"
	end openPopUp

	-- The index of the item that is wanted (or contains it), ignoring case; 0 when none.
	on indexOfName(itemNames, wanted, wholeName)
		ignoring case
			repeat with i from 1 to count of itemNames
				set itemName to item i of itemNames
				if itemName is not missing value then
					set itemName to itemName as text
					if wholeName then
						if itemName is wanted then return i
					else
						if itemName contains wanted then return i
					end if
				end if
			end repeat
		end ignoring
		return 0
	end indexOfName

	on closeMenu()
		tell application "System Events" to key code 53 -- Escape
	end closeMenu

	on joined(itemNames)
		set seen to {}
		repeat with itemName in itemNames
			if contents of itemName is not missing value then set end of seen to (contents of itemName as text)
		end repeat
		set savedDelimiters to AppleScript's text item delimiters
		set AppleScript's text item delimiters to ", "
		set listing to seen as text
		set AppleScript's text item delimiters to savedDelimiters
		return listing
	end joined
end script
